// SPDX-License-Identifier: GPL-3.0-or-later
#include <stdlib.h>
#include <sys/ioctl.h>

#include <string>

#include "DeviceKit/RawDevice.h"

namespace tallowmark {

namespace {

// As <sys/disk.h> of the Mac's SDK numbers them; the headers for cross-compiling lack that file.
constexpr unsigned long getBlockSize = _IOR('d', 24, std::uint32_t);
constexpr unsigned long getBlockCount = _IOR('d', 25, std::uint64_t);

// "disk4s1" of a device's number, empty when it has no name.
std::string nameOf(dev_t device, mode_t kind) {
  const char* name = ::devname(device, kind);
  return name == nullptr ? std::string() : name;
}

}  // namespace

std::optional<DeviceGeometry> askGeometry(int fd) {
  DeviceGeometry geometry;
  if (::ioctl(fd, getBlockSize, &geometry.blockSize) != 0 ||
      ::ioctl(fd, getBlockCount, &geometry.blockCount) != 0) {
    return std::nullopt;
  }
  return geometry;
}

// Raw disks (/dev/rdisk4) have no cache.
ReadOutcome readUncached(int fd, std::uint64_t offset, std::span<std::uint8_t> into) {
  return readFully(fd, offset, into);
}

bool liesOn(const struct stat& file, const struct stat& device) {
  const std::string volume = nameOf(file.st_dev, S_IFBLK);
  std::string disk;
  if (S_ISBLK(device.st_mode)) {
    disk = nameOf(device.st_rdev, S_IFBLK);
  } else if (S_ISCHR(device.st_mode)) {
    disk = nameOf(device.st_rdev, S_IFCHR);
    disk = disk.starts_with('r') ? disk.substr(1) : std::string();
  }
  return !disk.empty() && (volume == disk || volume.starts_with(disk + "s"));
}

}  // namespace tallowmark
