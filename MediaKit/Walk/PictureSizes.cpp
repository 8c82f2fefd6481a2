// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/PictureSizes.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace tallowmark {

namespace {

// One that a reference is learnt by, and minutes of a clip.
constexpr double mostCounted = 3000;

std::size_t kindOf(const SliceHeader& slice) {
  return std::min(slice.type % 5, 2U) * 2 + (slice.isReference ? 1 : 0);
}

}  // namespace

void PictureSizes::add(const SliceHeader& slice, std::uint64_t bytes) {
  const double size = std::log2(static_cast<double>(bytes));
  Moments& kind = kinds_.at(kindOf(slice));
  const double kept = std::min(kind.count, mostCounted) / std::max(kind.count, 1.0);
  kind = {kind.count * kept + 1, kind.sum * kept + size, kind.squares * kept + size * size};
}

double PictureSizes::count() const {
  return std::accumulate(kinds_.begin(), kinds_.end(), 0.0,
                         [](double sum, const Moments& kind) { return sum + kind.count; });
}

double PictureSizes::bits(const SliceHeader& slice, std::uint64_t bytes) const {
  constexpr double leastSpread = 0.3;
  const Moments& kind = kinds_.at(kindOf(slice));
  if (kind.count < 2) {
    return 0;
  }
  const double mean = kind.sum / kind.count;
  const double variance = kind.squares / kind.count - mean * mean;
  const double spread = std::sqrt(std::max(variance, leastSpread * leastSpread));
  const double off = (std::log2(static_cast<double>(bytes)) - mean) / spread;
  // Sizes have long tails: no single one settles anything.
  constexpr double mostOff = 4;
  return -std::min(off * off, mostOff * mostOff) / 2 / std::log(2.0) - std::log2(spread);
}

}  // namespace tallowmark
