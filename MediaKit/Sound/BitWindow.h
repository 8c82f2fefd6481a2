// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {

/// The bits of a byte string, most significant first. Past the end they are zeros, and `isOver`
/// tells. Some are held ahead of time: where the next codeword starts waits for the length of this
/// one, and should not wait for memory, too. The bytes must outlive it.
class BitWindow {
 public:
  explicit BitWindow(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  /// Bits taken so far, past the end too.
  std::size_t position() const { return next_ * 8 - held_; }
  /// More bits were taken than there are.
  bool isOver() const { return position() > bytes_.size() * 8; }

  /// Afterwards this many bits are held at least.
  static constexpr unsigned filled = 56;
  void fill() {
    window_ |= bytesAt(next_) >> held_;
    next_ += (63 - held_) / 8;
    held_ |= filled;
  }
  /// Those that are held, at the top; what is below means nothing.
  std::uint64_t held() const { return window_; }
  /// Takes `count` of those that are held.
  void drop(unsigned count) {
    window_ <<= count;
    held_ -= count;
  }

  /// The next `count` bits, from 1 to 32.
  std::uint32_t take(unsigned count) {
    fill();
    const auto value = static_cast<std::uint32_t>(window_ >> (64 - count));
    drop(count);
    return value;
  }
  bool flag() { return take(1) != 0; }
  void skip(std::size_t count) {
    const std::size_t to = position() + count;
    next_ = to / 8;
    window_ = 0;
    held_ = 0;
    fill();
    drop(static_cast<unsigned>(to % 8));
  }

 private:
  std::uint64_t bytesAt(std::size_t byte) const {
    return byte + 8 <= bytes_.size() ? bigEndianWord(bytes_.data() + byte) : lastBytes(byte);
  }
  std::uint64_t lastBytes(std::size_t byte) const {
    std::uint64_t word = 0;
    for (unsigned i = 0; i < 8; ++i) {
      word = (word << 8U) | (byte + i < bytes_.size() ? bytes_[byte + i] : 0U);
    }
    return word;
  }

  std::span<const std::uint8_t> bytes_;
  /// The first byte of which no bit counts as held.
  std::size_t next_ = 0;
  std::uint64_t window_ = 0;
  unsigned held_ = 0;
};

}  // namespace tallowmark
