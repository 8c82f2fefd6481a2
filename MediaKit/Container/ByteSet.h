// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "MediaKit/Container/ByteLanes.h"

namespace tallowmark {

/// Values that a byte may have, one flag each.
using ByteValues = std::array<bool, 256>;

/// A set of bytes as ranges, which sixteen neighbouring bytes are held against at once. It has a
/// few more than it was made of where these need more ranges.
template <std::size_t mostRanges>
class ByteSet {
 public:
  ByteSet() = default;
  /// The smallest gaps between values are closed until `mostRanges` are left.
  explicit ByteSet(const ByteValues& values) {
    std::vector<Ends> ranges;
    for (std::size_t value = 0; value < values.size(); ++value) {
      const auto byte = static_cast<std::uint8_t>(value);
      if (values.at(value) && !ranges.empty() && ranges.back().last + 1 == byte) {
        ranges.back().last = byte;
      } else if (values.at(value)) {
        ranges.push_back({byte, byte});
      }
    }
    while (ranges.size() > mostRanges) {
      const auto gap = [](const Ends& a, const Ends& b) { return b.first - a.last; };
      auto closest = ranges.begin();
      for (auto range = ranges.begin(); range + 1 != ranges.end(); ++range) {
        closest = gap(*range, *(range + 1)) < gap(*closest, *(closest + 1)) ? range : closest;
      }
      closest->last = (closest + 1)->last;
      ranges.erase(closest + 1);
    }
    isEmpty_ = ranges.empty();
    for (std::size_t i = 0; i < mostRanges && !isEmpty_; ++i) {
      const Ends& range = ranges[i < ranges.size() ? i : 0];
      ranges_[i] = {range.first, range.last};
    }
  }

  /// Which of the sixteen bytes at `bytes` may be in the set.
  ByteLanes::Mask has(const std::uint8_t* bytes) const {
    ByteLanes::Mask mask = ByteLanes::within(bytes, ranges_[0]);
    for (std::size_t i = 1; i < mostRanges; ++i) mask |= ByteLanes::within(bytes, ranges_[i]);
    return isEmpty_ ? ByteLanes::Mask{} : mask;
  }

 private:
  struct Ends {
    std::uint8_t first;
    std::uint8_t last;
  };

  std::array<ByteLanes::Range, mostRanges> ranges_;
  bool isEmpty_ = true;
};

}  // namespace tallowmark
