// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/RawDevice.h"

#include <unistd.h>

#include <limits>
#include <mutex>
#include <utility>

#include "DeviceKit/DeviceError.h"

namespace tallowmark {

namespace {

// What a file in place of a device is read in.
constexpr std::size_t blockOfFiles = 512;

struct Extent {
  std::uint64_t size = 0;
  std::size_t blockSize = 0;
};

std::optional<Extent> extentOf(int fd) {
  const auto geometry = askGeometry(fd);
  if (geometry && geometry->blockSize > 0 && geometry->blockCount > 0) {
    const auto size = bytesOf(*geometry);
    return size ? std::optional(Extent{*size, geometry->blockSize}) : std::nullopt;
  }
  struct stat status {};
  if (::fstat(fd, &status) != 0 || status.st_size < 1) {
    return std::nullopt;
  }
  return Extent{static_cast<std::uint64_t>(status.st_size), blockOfFiles};
}

}  // namespace

std::optional<std::uint64_t> bytesOf(const DeviceGeometry& geometry) {
  constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
  if (geometry.blockSize == 0 || geometry.blockCount == 0 ||
      geometry.blockCount > most / geometry.blockSize) {
    return std::nullopt;
  }
  return geometry.blockCount * geometry.blockSize;
}

RawDevice::RawDevice(int fd, std::string path) : fd_(fd), path_(std::move(path)) {
  const auto extent = extentOf(fd);
  if (!extent) {
    ::close(fd);
    throw DeviceError::notAFileOrDevice(path_);
  }
  size_ = extent->size;
  blockSize_ = extent->blockSize;
}

RawDevice::~RawDevice() {
  ::close(fd_);
}

ReadOutcome RawDevice::readAt(std::uint64_t offset, std::span<std::uint8_t> into) const {
  const std::shared_lock lock(reading_);
  return readFully(fd_, offset, into);
}

ReadOutcome RawDevice::readExactly(std::uint64_t offset, std::span<std::uint8_t> into) const {
  const std::unique_lock lock(reading_);
  return readUncached(fd_, offset, into);
}

// A card that is pulled leaves a device without a size, or one that no longer answers.
bool RawDevice::isPresent() const {
  const auto now = extentOf(fd_);
  return now && now->size == size_;
}

}  // namespace tallowmark
