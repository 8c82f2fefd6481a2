// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "DeviceKit/KernelCopy.h"

namespace tallowmark {

std::optional<std::size_t> kernelCopy(int from, std::uint64_t fromOffset, int to,
                                      std::uint64_t toOffset, std::size_t count) {
  for (;;) {
    auto in = static_cast<off64_t>(fromOffset);
    auto out = static_cast<off64_t>(toOffset);
    const ssize_t moved = ::copy_file_range(from, &in, to, &out, count, 0);
    if (moved >= 0) {
      return static_cast<std::size_t>(moved);
    }
    if (errno != EINTR) {
      return std::nullopt;  // other file systems, old kernels, errors: read and write tell which
    }
  }
}

bool kernelCopyPays(std::uint64_t fromOffset, int to, std::uint64_t toOffset) {
  constexpr std::uint64_t blockSize = 4096;
  struct statfs system {};
  if (::fstatfs(to, &system) != 0) {
    return true;
  }
  switch (static_cast<std::uint32_t>(system.f_type)) {
    case EXT4_SUPER_MAGIC:
    case TMPFS_MAGIC:
      return false;
    case NFS_SUPER_MAGIC:
    case SMB_SUPER_MAGIC:
    case CIFS_SUPER_MAGIC:
    case SMB2_SUPER_MAGIC:
    case CEPH_SUPER_MAGIC:
    case FUSE_SUPER_MAGIC:
    case V9FS_MAGIC:
      return true;
    default:  // storage is shared by whole blocks only
      return fromOffset % blockSize == toOffset % blockSize;
  }
}

Stretch stretchAt(int fd, std::uint64_t offset, std::uint64_t count) {
  const auto start = static_cast<off64_t>(offset);
  const off64_t data = ::lseek64(fd, start, SEEK_DATA);
  if (data > start) {
    return {std::min(count, static_cast<std::uint64_t>(data - start)), true};
  }
  if (data == start) {
    const off64_t hole = ::lseek64(fd, start, SEEK_HOLE);
    return {hole > start ? std::min(count, static_cast<std::uint64_t>(hole - start)) : count,
            false};
  }
  // No data from here on: a hole up to the end, if the file still reaches so far.
  struct stat status {};
  if (errno != ENXIO || ::fstat(fd, &status) != 0 || status.st_size <= start) {
    return {count, false};
  }
  return {std::min(count, static_cast<std::uint64_t>(status.st_size - start)), true};
}

// Without it ext4 promises room block by block as pages are written. Memory would be cleared first,
// and a file system that compresses would store such a stretch as it is.
void reserveStorage(int fd, std::uint64_t offset, std::uint64_t count) {
  struct statfs system {};
  const bool isCheap = ::fstatfs(fd, &system) == 0 &&
                       (static_cast<std::uint32_t>(system.f_type) == EXT4_SUPER_MAGIC ||
                        static_cast<std::uint32_t>(system.f_type) == XFS_SUPER_MAGIC);
  if (isCheap) {
    (void)::fallocate(fd, FALLOC_FL_KEEP_SIZE, static_cast<off64_t>(offset),
                      static_cast<off64_t>(count));
  }
}

void startWriteback(int fd, std::uint64_t offset, std::uint64_t count) {
  (void)::sync_file_range(fd, static_cast<off64_t>(offset), static_cast<off64_t>(count),
                          SYNC_FILE_RANGE_WRITE);
}

int syncToMedium(int fd) {
  while (::fsync(fd) != 0) {
    if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace tallowmark
