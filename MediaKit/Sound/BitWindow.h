// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {

/// The bits of a byte string, most significant first, seen 32 at a time. Past the end they are
/// zeros, and `isOver` tells. The bytes must outlive it.
class BitWindow {
 public:
  explicit BitWindow(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  /// Bits taken so far, past the end too.
  std::size_t position() const { return position_; }
  /// More bits were taken than there are.
  bool isOver() const { return position_ > bytes_.size() * 8; }

  /// The next 32 bits, which stay.
  std::uint32_t peek() const { return static_cast<std::uint32_t>(peekLong() >> 32U); }
  /// The next `longBits` bits at the top, which stay; those below mean nothing.
  std::uint64_t peekLong() const {
    const std::size_t byte = position_ / 8;
    const std::uint64_t word =
        byte + 8 <= bytes_.size() ? bigEndianWord(bytes_.data() + byte) : lastBytes(byte);
    return word << (position_ % 8);
  }
  static constexpr unsigned longBits = 57;
  void skip(std::size_t count) { position_ += count; }
  /// The next `count` bits, from 1 to 32.
  std::uint32_t take(unsigned count) {
    const std::uint32_t value = peek() >> (32 - count);
    position_ += count;
    return value;
  }
  bool flag() { return take(1) != 0; }

 private:
  std::uint64_t lastBytes(std::size_t byte) const {
    std::uint64_t word = 0;
    for (unsigned i = 0; i < 8; ++i) {
      word = (word << 8U) | (byte + i < bytes_.size() ? bytes_[byte + i] : 0U);
    }
    return word;
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t position_ = 0;
};

}  // namespace tallowmark
