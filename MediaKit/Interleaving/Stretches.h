// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>
#include <vector>

#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

/// What is left of a stretch without `taken`, which lie in it, in order and apart.
inline std::vector<ByteRange> rest(const ByteRange& stretch, std::span<const ByteRange> taken) {
  std::vector<ByteRange> left;
  left.reserve(taken.size() + 1);
  std::uint64_t from = stretch.lower;
  for (const ByteRange& range : taken) {
    if (range.lower > from) {
      left.push_back({from, range.lower});
    }
    from = range.upper;
  }
  if (stretch.upper > from) {
    left.push_back({from, stretch.upper});
  }
  return left;
}

}  // namespace tallowmark
