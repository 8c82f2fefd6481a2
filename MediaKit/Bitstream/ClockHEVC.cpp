// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/ClockHEVC.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include "MediaKit/Bitstream/VideoUsability.h"

namespace tallowmark {

namespace {

// ITU-T H.265 §7.3.4
void skipScalingLists(BitReader& bits) {
  constexpr unsigned sizes = 4;
  constexpr unsigned matrices = 6;
  constexpr unsigned mostCoefficients = 64;
  for (unsigned size = 0; size < sizes; ++size) {
    const unsigned coefficients = std::min(mostCoefficients, 1U << (4 + 2 * size));
    for (unsigned matrix = 0; matrix < matrices && bits.ok(); matrix += size == 3 ? 3 : 1) {
      if (!bits.flag()) {
        bits.ue();
        continue;
      }
      if (size > 1) bits.se();
      for (unsigned i = 0; i < coefficients; ++i) bits.se();
    }
  }
}

/// How far before and behind a picture those lie that it refers to, in picture order: those before
/// from the nearest on, then those behind.
using Distances = std::vector<std::int64_t>;

// ITU-T H.265 §7.4.8, a set that is told by another
Distances readFromAnother(BitReader& bits, const Distances& other) {
  const bool isBefore = bits.flag();
  const std::int64_t size = std::int64_t{bits.ue()} + 1;
  const std::int64_t moved = isBefore ? -size : size;
  Distances before;
  Distances behind;
  for (std::size_t i = 0; i <= other.size(); ++i) {
    const bool isUsed = bits.flag() || bits.flag();
    const std::int64_t distance = moved + (i < other.size() ? other[i] : 0);
    if (isUsed && distance != 0) (distance < 0 ? before : behind).push_back(distance);
  }
  std::sort(before.begin(), before.end(), std::greater<>());
  std::sort(behind.begin(), behind.end());
  before.insert(before.end(), behind.begin(), behind.end());
  return before;
}

// ITU-T H.265 §7.3.7; nothing when there are more than a decoder keeps
std::optional<Distances> readReferenceSet(BitReader& bits, const Distances* other) {
  constexpr std::uint32_t most = 16;
  if (other != nullptr && bits.flag()) {
    Distances distances = readFromAnother(bits, *other);
    return distances.size() <= most ? std::optional(std::move(distances)) : std::nullopt;
  }
  const std::uint32_t before = bits.ue();
  const std::uint32_t behind = bits.ue();
  if (before > most || behind > most) {
    return std::nullopt;
  }
  Distances distances;
  std::int64_t distance = 0;
  for (std::uint32_t i = 0; i < before + behind; ++i) {
    if (i == before) distance = 0;
    const std::int64_t step = std::int64_t{bits.ue()} + 1;
    distance += i < before ? -step : step;
    bits.bit();
    distances.push_back(distance);
  }
  return distances;
}

bool skipReferenceSets(BitReader& bits) {
  constexpr std::uint32_t mostSets = 64;
  const std::uint32_t sets = bits.ue();
  std::optional<Distances> last;
  for (std::uint32_t i = 0; i < std::min(sets, mostSets); ++i) {
    last = readReferenceSet(bits, last ? &*last : nullptr);
    if (!last || !bits.ok()) {
      return false;
    }
  }
  return sets <= mostSets;
}

// ITU-T H.265 §7.3.2.2.1; false when it does not read as one
bool skipToUsability(BitReader& bits, unsigned orderBits) {
  constexpr std::uint32_t mostLongTerm = 32;
  for (int number = 0; number < 4; ++number) bits.ue();
  if (bits.flag() && bits.flag()) skipScalingLists(bits);
  bits.skip(2);
  if (bits.flag()) {
    bits.skip(8);
    bits.ue();
    bits.ue();
    bits.bit();
  }
  if (!skipReferenceSets(bits)) {
    return false;
  }
  if (bits.flag()) {
    const std::uint32_t count = bits.ue();
    if (count > mostLongTerm) return false;
    bits.skip(std::size_t{count} * (orderBits + 1));
  }
  bits.skip(2);
  return bits.ok();
}

}  // namespace

std::optional<double> readClockTickHEVC(BitReader& bits, unsigned orderBits) {
  if (!skipToUsability(bits, orderBits) || !bits.flag()) {
    return std::nullopt;
  }
  skipVideoSignal(bits);
  bits.skip(3);
  if (bits.flag()) {
    for (int side = 0; side < 4; ++side) bits.ue();
  }
  return readClock(bits);
}

}  // namespace tallowmark
