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

// "disk4" of the number of disk4, rdisk4 or disk4s1; empty for what is no disk.
std::string diskOf(dev_t device, mode_t kind) {
  const char* const known = ::devname(device, kind);
  std::string name = known == nullptr ? "" : known;
  name.erase(0, name.starts_with('r') ? 1 : 0);
  constexpr std::size_t prefix = 4;
  if (!name.starts_with("disk")) {
    return {};
  }
  return name.substr(0, name.find_first_not_of("0123456789", prefix));
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
  const bool isDevice = S_ISBLK(device.st_mode) || S_ISCHR(device.st_mode);
  const std::string disk =
      isDevice ? diskOf(device.st_rdev, S_ISBLK(device.st_mode) ? S_IFBLK : S_IFCHR) : "";
  return !disk.empty() && diskOf(file.st_dev, S_IFBLK) == disk;
}

}  // namespace tallowmark
