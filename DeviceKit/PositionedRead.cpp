// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/PositionedRead.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tallowmark {

namespace {
// Linux moves at most 0x7ffff000 bytes a call; asking for less keeps one behaviour everywhere.
constexpr std::size_t largestRead = std::size_t{1} << 30U;
}  // namespace

ReadOutcome readFully(int fd, std::uint64_t offset, std::span<std::uint8_t> into) {
  std::size_t done = 0;
  while (done < into.size()) {
    const ssize_t got = ::pread(fd, into.data() + done, std::min(into.size() - done, largestRead),
                                static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) {
      continue;
    }
    if (got <= 0) {
      return {done, got < 0 ? errno : 0};
    }
    done += static_cast<std::size_t>(got);
  }
  return {done, 0};
}

}  // namespace tallowmark
