// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace tallowmark {

/// Reads `Width` bytes at `at`, most significant first. The caller has checked the bounds.
template <typename Number, std::size_t Width = sizeof(Number)>
constexpr Number bigEndian(std::span<const std::uint8_t> bytes, std::size_t at) {
  Number value = 0;
  for (std::size_t i = 0; i < Width; ++i) {
    value = static_cast<Number>((static_cast<std::uint64_t>(value) << 8U) | bytes[at + i]);
  }
  return value;
}

/// The eight bytes at `bytes`, most significant first, in one load.
inline std::uint64_t bigEndianWord(const std::uint8_t* bytes) {
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof(word));
  return std::endian::native == std::endian::big ? word : __builtin_bswap64(word);
}

/// As bigEndian, but 0 when the bytes are not all there.
template <typename Number, std::size_t Width = sizeof(Number)>
constexpr Number bigEndianOrZero(std::span<const std::uint8_t> bytes, std::size_t at) {
  return at <= bytes.size() && bytes.size() - at >= Width ? bigEndian<Number, Width>(bytes, at) : 0;
}

}  // namespace tallowmark
