// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// A stretch of a source held in memory, moved along as it is asked for. One buffer, reused; the
/// source must outlive it. Reads little at a new place and more the longer it goes on from there,
/// so that hopping from unit to unit leaves the bytes between unread.
class MediaWindow {
 public:
  /// How much one read takes when no more is asked for.
  struct ReadAhead {
    std::size_t first;
    std::size_t most;
  };

  /// Nothing behind `end` is read.
  MediaWindow(const ByteSource& source, std::uint64_t end, ReadAhead readAhead)
      : source_(source), end_(end), readAhead_(readAhead), next_(readAhead.first), aheadEnd_(end) {}

  std::uint64_t end() const { return end_; }

  /// From here on nothing is read ahead behind `offset`; what is asked for is.
  void readAheadUpTo(std::uint64_t offset) { aheadEnd_ = offset; }

  /// at() would give these bytes without reading, and without moving what it gave before.
  bool holds(std::uint64_t offset, std::size_t count) const {
    return offset >= start_ && offset - start_ <= held_ && held_ - (offset - start_) >= count;
  }

  /// The bytes from `offset` on: at least `count` of them unless the source ends first, and as many
  /// more as are at hand. Valid until the next call. Throws DeviceError.
  std::span<const std::uint8_t> at(std::uint64_t offset, std::size_t count);

 private:
  const ByteSource& source_;
  std::uint64_t end_;
  ReadAhead readAhead_;
  std::size_t next_;
  std::uint64_t aheadEnd_;
  std::uint64_t start_ = 0;
  std::size_t held_ = 0;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace tallowmark
