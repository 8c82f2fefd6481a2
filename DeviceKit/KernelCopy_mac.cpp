// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "DeviceKit/KernelCopy.h"

namespace tallowmark {

// The Mac copies whole files in the kernel (clonefile), not stretches of them.
std::optional<std::size_t> kernelCopy(int, std::uint64_t, int, std::uint64_t, std::size_t) {
  return std::nullopt;
}

bool kernelCopyPays(std::uint64_t, int, std::uint64_t) {
  return false;
}

Stretch stretchAt(int, std::uint64_t, std::uint64_t count) {
  return {count, false};
}

void reserveStorage(int, std::uint64_t, std::uint64_t) {}

void startWriteback(int, std::uint64_t, std::uint64_t) {}

int syncToMedium(int fd) {
  // fsync leaves the drive's own cache unwritten here (fsync(2)); not every file system knows
  // F_FULLFSYNC.
  if (::fcntl(fd, F_FULLFSYNC) == 0) {
    return 0;
  }
  while (::fsync(fd) != 0) {
    if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace tallowmark
