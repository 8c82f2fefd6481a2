// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <limits>

namespace tallowmark {

/// Sums and products of numbers that files claim: the largest number stands for all that overflow,
/// so that a comparison against what is really there still comes out right.
constexpr std::uint64_t saturatingAdd(std::uint64_t a, std::uint64_t b) {
  constexpr auto largest = std::numeric_limits<std::uint64_t>::max();
  return a > largest - b ? largest : a + b;
}

constexpr std::uint64_t saturatingMultiply(std::uint64_t a, std::uint64_t b) {
  constexpr auto largest = std::numeric_limits<std::uint64_t>::max();
  return b != 0 && a > largest / b ? largest : a * b;
}

/// `value` × `multiplier` ÷ `divisor`, rounded down, without losing the product's upper half; 0
/// when the divisor is 0.
constexpr std::uint64_t rescale(std::uint64_t value, std::uint32_t multiplier,
                                std::uint32_t divisor) {
  if (divisor == 0) {
    return 0;
  }
  const std::uint64_t whole = saturatingMultiply(value / divisor, multiplier);
  return saturatingAdd(whole, (value % divisor) * multiplier / divisor);
}

}  // namespace tallowmark
