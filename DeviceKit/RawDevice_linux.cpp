// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <new>

#include "DeviceKit/RawDevice.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

// Direct reads want memory aligned as the device's blocks are, of which none is larger.
constexpr std::align_val_t alignment{4096};

struct AlignedDelete {
  void operator()(std::uint8_t* bytes) const { ::operator delete(bytes, alignment); }
};

std::unique_ptr<std::uint8_t, AlignedDelete> alignedBytes(std::size_t count) {
  return std::unique_ptr<std::uint8_t, AlignedDelete>(
      static_cast<std::uint8_t*>(::operator new(count, alignment)));
}

// /sys/dev/block/8:17 links to …/block/sdb/sdb1: a partition lies inside its disk. Empty for what
// is no disk.
fs::path folderOfDisk(dev_t device) {
  std::error_code error;
  const fs::path folder = fs::canonical(
      "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device)),
      error);
  return fs::exists(folder / "partition", error) ? folder.parent_path() : folder;
}

}  // namespace

std::optional<DeviceGeometry> askGeometry(int fd) {
  int blockSize = 0;
  std::uint64_t bytes = 0;
  if (::ioctl(fd, BLKSSZGET, &blockSize) != 0 || ::ioctl(fd, BLKGETSIZE64, &bytes) != 0 ||
      blockSize <= 0) {
    return std::nullopt;
  }
  const auto block = static_cast<std::uint32_t>(blockSize);
  return DeviceGeometry{block, bytes / block};
}

// The page cache reads whole pages and far ahead: one bad block would take its neighbours with it,
// and each try would make the card stumble over all that fail nearby.
ReadOutcome readUncached(int fd, std::uint64_t offset, std::span<std::uint8_t> into) {
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_DIRECT) != 0) {
    return readFully(fd, offset, into);
  }
  const auto bytes = alignedBytes(into.size());
  const ReadOutcome got = readFully(fd, offset, {bytes.get(), into.size()});
  (void)::fcntl(fd, F_SETFL, flags);
  if (got.error == EINVAL) {
    return readFully(fd, offset, into);  // a device that has it otherwise
  }
  std::copy_n(bytes.get(), got.count, into.begin());
  return got;
}

bool liesOn(const struct stat& file, const struct stat& device) {
  const fs::path disk = S_ISBLK(device.st_mode) ? folderOfDisk(device.st_rdev) : fs::path();
  return !disk.empty() && folderOfDisk(file.st_dev) == disk;
}

}  // namespace tallowmark
