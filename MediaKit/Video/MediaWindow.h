// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// A stretch of a source held in memory, moved along as it is asked for. One buffer, reused; the
/// source must outlive it. Reads no more ahead than its owner wants, so that hopping from unit to
/// unit leaves the bytes between unread.
class MediaWindow {
 public:
  /// `readAhead` is how much one read takes at least; nothing behind `end` is read.
  MediaWindow(const ByteSource& source, std::uint64_t end, std::size_t readAhead)
      : source_(source), end_(end), readAhead_(readAhead) {}

  std::uint64_t end() const { return end_; }

  /// The bytes from `offset` on: at least `count` of them unless the source ends first, and as many
  /// more as are at hand. Valid until the next call. Throws DeviceError.
  std::span<const std::uint8_t> at(std::uint64_t offset, std::size_t count);

 private:
  const ByteSource& source_;
  std::uint64_t end_;
  std::size_t readAhead_;
  std::uint64_t start_ = 0;
  std::size_t held_ = 0;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace tallowmark
