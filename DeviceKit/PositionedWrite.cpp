// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/PositionedWrite.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tallowmark {

namespace {
// As in reading: one behaviour on every system.
constexpr std::size_t largestWrite = std::size_t{1} << 30U;
}  // namespace

WriteOutcome writeFully(int fd, std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written =
        ::pwrite(fd, bytes.data() + done, std::min(bytes.size() - done, largestWrite),
                 static_cast<off_t>(offset + done));
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return {done, written < 0 ? errno : EIO};
    }
    done += static_cast<std::size_t>(written);
  }
  return {done, 0};
}

}  // namespace tallowmark
