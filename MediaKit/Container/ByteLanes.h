// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Sixteen neighbouring bytes compared at once, in the compilers' portable vector form: SSE2 on
/// x86-64, NEON on Apple silicon. A lane of a mask is 0xFF where the comparison holds, else 0.
namespace tallowmark::ByteLanes {

inline constexpr std::size_t width = 16;
using Mask = std::uint8_t __attribute__((vector_size(width)));

inline Mask load(const std::uint8_t* bytes) {
  Mask lanes;
  std::memcpy(&lanes, bytes, width);
  return lanes;
}

inline Mask equal(const Mask& lanes, std::uint8_t value) {
  return reinterpret_cast<Mask>(lanes == value);
}

inline Mask equal(const std::uint8_t* bytes, std::uint8_t value) {
  return equal(load(bytes), value);
}

inline Mask atMost(const std::uint8_t* bytes, std::uint8_t value) {
  return reinterpret_cast<Mask>(load(bytes) <= value);
}

/// Where not all three bytes of a lane are 0.
inline Mask notAllZero(const std::uint8_t* a, const std::uint8_t* b, const std::uint8_t* c) {
  return reinterpret_cast<Mask>((load(a) | load(b) | load(c)) != 0);
}

inline Mask least(const Mask& a, const Mask& b) {
  return a < b ? a : b;
}

/// Bytes from `first` to `last`, in a form that one comparison answers for sixteen.
struct Range {
  Range() = default;
  Range(std::uint8_t first, std::uint8_t last)
      : from(Mask{} + first), width(Mask{} + static_cast<std::uint8_t>(last - first)) {}
  Mask from{};
  Mask width{};
};

inline Mask within(const std::uint8_t* bytes, const Range& range) {
  return reinterpret_cast<Mask>(load(bytes) - range.from <= range.width);
}

inline Mask all() {
  return reinterpret_cast<Mask>(Mask{} == Mask{});
}

inline bool any(const Mask& mask) {
  using Halves = std::uint64_t __attribute__((vector_size(width)));
  const auto halves = reinterpret_cast<Halves>(mask);
  return (halves[0] | halves[1]) != 0;
}

}  // namespace tallowmark::ByteLanes
