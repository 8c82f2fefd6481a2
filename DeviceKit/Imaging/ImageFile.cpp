// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Imaging/ImageFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FileSource.h"
#include "DeviceKit/Imaging/ImageError.h"
#include "DeviceKit/KernelCopy.h"
#include "DeviceKit/PendingFile.h"
#include "DeviceKit/PositionedRead.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

// Unused space of a card is zeros, and takes no room in the image where a run of them is as long.
constexpr std::size_t holeSize = std::size_t{64} << 10U;
// A card with a million separate holes has a map of this size.
constexpr std::uint64_t largestMap = std::uint64_t{64} << 20U;

fs::path withSuffix(fs::path path, const char* suffix) {
  return path += suffix;
}

bool isThere(const fs::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

// As open, made again when a signal interrupts it.
int openPatiently(const fs::path& path, int flags) {
  constexpr mode_t readAndWrite = 0666;
  int descriptor = -1;
  do {
    descriptor = ::open(path.c_str(), flags, readAndWrite);
  } while (descriptor < 0 && errno == EINTR);
  return descriptor;
}

bool isZeros(std::span<const std::uint8_t> bytes) {
  return bytes.front() == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

// The map in a file; nothing when there is none. Throws nameTaken for what is no map.
std::optional<ReadMap> mapIn(const fs::path& path) {
  if (!isThere(path)) {
    return std::nullopt;
  }
  const FileSource file(path.string());
  const auto bytes = file.read(0, static_cast<std::size_t>(std::min(file.size(), largestMap)));
  auto map = ReadMap::parse({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  if (!map || file.size() > largestMap) {
    throw ImageError::nameTaken(path);
  }
  return map;
}

}  // namespace

fs::path ImageFile::unfinishedName(const fs::path& file) {
  return withSuffix(file, ".part");
}

fs::path ImageFile::mapName(const fs::path& file) {
  return withSuffix(file, ".map");
}

ImageFile::ImageFile(fs::path file, std::uint64_t size)
    : file_(std::move(file)), path_(unfinishedName(file_)), map_(size) {
  const auto known = mapIn(mapName(file_));
  const bool isFinished = isThere(file_);
  const bool isUnfinished = isThere(path_);
  if (isFinished && (isUnfinished || !known)) {
    throw ImageError::nameTaken(file_);
  }
  if (isUnfinished && !known) {
    throw ImageError::nameTaken(path_);
  }
  if (known && (isFinished || isUnfinished)) {
    if (known->size() != size) {
      throw ImageError::anotherCard(file_);
    }
    map_ = *known;
    resume(isFinished ? file_ : path_);
  } else if (known && known->bytes(ReadMap::State::untried) < known->size()) {
    throw ImageError::nameTaken(mapName(file_));  // of an image that was moved away
  } else {
    start();
  }
}

// The map comes first: an image without one would be nobody's.
void ImageFile::start() {
  writeMap();
  image_.reset(openPatiently(path_, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC));
  if (!image_ && errno == EEXIST) {
    throw ImageError::inUse(file_);
  }
  if (!image_) {
    throw DeviceError::writeFailed(path_.string(), errno);
  }
  lock();
  try {
    setLength();
  } catch (const DeviceError&) {
    // A disk that takes no file this large: what was only begun would be in the way.
    ::unlink(path_.c_str());
    ::unlink(mapName(file_).c_str());
    throw;
  }
}

void ImageFile::resume(const fs::path& existing) {
  path_ = existing;
  image_.reset(openPatiently(path_, O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!image_) {
    throw DeviceError::writeFailed(path_.string(), errno);
  }
  struct stat status {};
  if (::fstat(image_.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    throw ImageError::nameTaken(path_);
  }
  lock();
  if (static_cast<std::uint64_t>(status.st_size) == map_.size()) {
    return;
  }
  // A run that was killed while it began left an image without its length.
  if (status.st_size != 0 || map_.bytes(ReadMap::State::untried) < map_.size()) {
    throw ImageError::nameTaken(path_);
  }
  setLength();
}

// All zeros at first, and without taking room where the file system can do that.
void ImageFile::setLength() {
  if (::ftruncate(image_.get(), static_cast<off_t>(map_.size())) != 0) {
    throw DeviceError::writeFailed(path_.string(), errno);
  }
}

// Goes with the descriptor. Not every file system has locks.
void ImageFile::lock() const {
  if (::flock(image_.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    throw ImageError::inUse(file_);
  }
}

std::size_t ImageFile::read(std::uint64_t offset, std::span<std::uint8_t> into) const {
  const ReadOutcome got = readFully(image_.get(), offset, into);
  if (got.error != 0) {
    throw DeviceError::readFailed(offset + got.count, got.error);
  }
  return got.count;
}

// Where zeros go, the image has them already.
void ImageFile::write(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  std::size_t from = 0;
  while (from < bytes.size()) {
    const auto pieceFrom = [&](std::size_t at) {
      return bytes.subspan(at, std::min(holeSize, bytes.size() - at));
    };
    if (isZeros(pieceFrom(from))) {
      from += pieceFrom(from).size();
      continue;
    }
    std::size_t upTo = from;
    while (upTo < bytes.size() && !isZeros(pieceFrom(upTo))) upTo += pieceFrom(upTo).size();
    writeAll(offset + from, bytes.subspan(from, upTo - from));
    from = upTo;
  }
  map_.mark(offset, bytes.size(), ReadMap::State::read);
}

void ImageFile::writeAll(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = ::pwrite(image_.get(), bytes.data() + done, bytes.size() - done,
                                     static_cast<off_t>(offset + done));
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      throw DeviceError::writeFailed(path_.string(), written < 0 ? errno : EIO);
    }
    done += static_cast<std::size_t>(written);
  }
  startWriteback(image_.get(), offset, bytes.size());
}

void ImageFile::markBad(std::uint64_t offset, std::uint64_t length) {
  map_.mark(offset, length, ReadMap::State::bad);
}

void ImageFile::save() {
  const int error = lostBytes_ ? EIO : syncToMedium(image_.get());
  if (error != 0) {
    lostBytes_ = true;
    throw DeviceError::writeFailed(path_.string(), error);
  }
  writeMap();
}

// Unlike everything else that is written, a map takes the place of the one before it.
void ImageFile::writeMap() const {
  const fs::path name = mapName(file_);
  const fs::path folder = name.has_parent_path() ? name.parent_path() : fs::path(".");
  PendingFile pending(folder);
  const std::string text = map_.text();
  pending.sink().append({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  pending.sink().sync();
  if (std::rename(pending.temporaryPath().c_str(), name.c_str()) != 0) {
    throw DeviceError::writeFailed(name.string(), errno);
  }
  syncFolder(folder);
}

void ImageFile::publish() {
  save();
  if (path_ == file_) {
    return;
  }
  const int error = giveName(path_, file_);
  if (error == EEXIST) {
    throw ImageError::nameTaken(file_);
  }
  if (error != 0) {
    throw DeviceError::writeFailed(file_.string(), error);
  }
  path_ = file_;
}

}  // namespace tallowmark
