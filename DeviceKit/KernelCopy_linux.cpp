// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <unistd.h>

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
