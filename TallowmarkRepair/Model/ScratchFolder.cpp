// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/ScratchFolder.h"

#include <QFile>
#include <QStandardPaths>
#include <QUuid>
#include <system_error>

#include "MediaKit/Naming/Utf8.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

constexpr const char* lockExtension = ".lock";

fs::path lockOf(fs::path folder) {
  return folder += lockExtension;
}

std::unique_ptr<QLockFile> lockAt(const fs::path& file) {
  auto lock = std::make_unique<QLockFile>(QFile::decodeName(file.c_str()));
  // A program may run for days: only one that is no longer there gives its lock up.
  lock->setStaleLockTime(0);
  return lock;
}

void removeUnowned(const fs::path& entry) {
  std::error_code ignored;
  const fs::path folder =
      entry.extension() == lockExtension ? fs::path(entry).replace_extension() : entry;
  // Whoever holds the lock took it before making the folder.
  if (const auto lock = lockAt(lockOf(folder)); lock->tryLock(0)) {
    fs::remove_all(folder, ignored);
  }
}

void removeWhatNobodyOwns(const fs::path& parent) {
  std::error_code error;
  std::vector<fs::path> entries;
  for (fs::directory_iterator entry(parent, error), end; !error && entry != end;
       entry.increment(error)) {
    entries.push_back(entry->path());
  }
  for (const fs::path& entry : entries) removeUnowned(entry);
}

std::string newName() {
  return QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString();
}

// Room for what is appended to a name.
std::string stemOf(const fs::path& file) {
  constexpr std::size_t longestStem = 200;
  return std::string(startOf(file.stem().string(), longestStem));
}

}  // namespace

ScratchPlace::~ScratchPlace() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

PreviewFiles ScratchPlace::filesFor(const fs::path& original, const std::string& extension) const {
  const std::string stem = stemOf(original);
  return {folder_ / (stem + "-preview" + extension), folder_ / (stem + "-full" + extension)};
}

PreviewFiles ScratchPlace::seamFilesFor(const fs::path& firstPart) const {
  const std::string stem = stemOf(firstPart) + "-seam";
  return {folder_ / (stem + "-preview.mp4"), folder_ / (stem + ".mp4")};
}

ScratchFolder::ScratchFolder(const fs::path& parent) : own_(parent / newName()) {
  removeWhatNobodyOwns(parent);
  takeOwnership();
}

void ScratchFolder::takeOwnership() {
  std::error_code ignored;
  fs::create_directories(own_.parent_path(), ignored);
  lock_ = lockAt(lockOf(own_));
  if (lock_->tryLock(0)) {
    fs::create_directories(own_, ignored);
  }
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  fs::remove_all(own_, ignored);
}

fs::path ScratchFolder::defaultParent() {
  const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
  return fs::path(QFile::encodeName(data).toStdString()) / "Tallowmark Repair" / "Previews";
}

std::shared_ptr<const ScratchPlace> ScratchFolder::newPlace() {
  // Somebody may have cleaned up behind the program's back.
  if (std::error_code ignored; !fs::exists(lockOf(own_), ignored)) {
    takeOwnership();
  }
  return std::make_shared<const ScratchPlace>(own_ / newName());
}

}  // namespace tallowmark
