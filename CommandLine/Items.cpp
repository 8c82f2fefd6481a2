// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/Items.h"

#include <system_error>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/SourceOpener.h"
#include "MediaKit/Naming/FolderWalk.h"
#include "MediaKit/Rescue/Checking.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

Item itemAt(const fs::path& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return {path, kindOf(path), error ? 0 : size};
}

// What is no kind of ours is opened all the same: that a file is missing, or none at all, is worth
// more to its owner than that its name is unfamiliar.
FileState::Any checkUnknown(const Item& item) {
  std::error_code error;
  if (fs::is_directory(item.path, error)) {
    return FileState::Failed{"Couldn't look into this folder."};
  }
  try {
    (void)SourceOpener::open(item.path.string());
    return FileState::NotAVideo{};
  } catch (const DeviceError& failure) {
    return FileState::Failed{"Couldn't read this file: " + std::string(failure.what())};
  }
}

}  // namespace

std::vector<Item> itemsFrom(std::span<const fs::path> paths) {
  std::vector<Item> items;
  SeenFiles seen;
  const auto add = [&](const fs::path& path) {
    if (seen.isNew(path)) {
      items.push_back(itemAt(path));
    }
  };
  for (const fs::path& path : paths) {
    std::error_code error;
    if (!fs::is_directory(path, error)) {
      add(path);
      continue;
    }
    const FolderWalk walk = walkFolder(path);
    for (const fs::path& file : walk.files) add(file);
    for (const fs::path& folder : walk.unreadable) items.push_back({folder, {}, 0});
  }
  return items;
}

FileState::Any checkItem(const Item& item) {
  return item.kind ? checkFile(item.path, *item.kind) : checkUnknown(item);
}

}  // namespace tallowmark
