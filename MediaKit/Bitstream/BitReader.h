// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tallowmark {

/// Reads the raw byte sequence payload of a NAL unit bit by bit, without its emulation prevention
/// bytes (H.264 §7.4.1, H.265 §7.4.2). Past the end it gives zeros and `ok()` turns false, so that
/// a parser checks once, at its end. The bytes must outlive it.
class BitReader {
 public:
  explicit BitReader(std::span<const std::uint8_t> payload) : bytes_(payload) {}

  bool ok() const { return ok_; }
  /// Bits taken so far.
  std::size_t position() const { return taken_; }

  std::uint32_t bit() {
    if (left_ == 0) {
      nextByte();
    }
    --left_;
    ++taken_;
    return (current_ >> left_) & 1U;
  }
  bool flag() { return bit() != 0; }

  /// `count` bits, at most 32, most significant first.
  std::uint32_t bits(unsigned count) {
    std::uint32_t value = 0;
    for (; count > 0; --count) {
      value = (value << 1U) | bit();
    }
    return value;
  }
  void skip(std::size_t count) {
    for (; count > 0 && ok_; --count) {
      bit();
    }
  }

  /// Unsigned Exp-Golomb code (H.264 §9.1); codes longer than 32 bits are an error.
  std::uint32_t ue() {
    unsigned zeros = 0;
    while (ok_ && bit() == 0) {
      if (++zeros > 31) {
        ok_ = false;
      }
    }
    return ok_ ? ((std::uint32_t{1} << zeros) - 1) + bits(zeros) : 0;
  }
  /// Signed Exp-Golomb code.
  std::int32_t se() {
    const std::uint32_t code = ue();
    const auto magnitude = static_cast<std::int32_t>((code >> 1U) + (code & 1U));
    return (code & 1U) != 0 ? magnitude : -magnitude;
  }

 private:
  void nextByte() {
    if (at_ < bytes_.size() && zeros_ >= 2 && bytes_[at_] == 3) {
      ++at_;
      zeros_ = 0;
    }
    if (at_ >= bytes_.size()) {
      ok_ = false;
      current_ = 0;
    } else {
      current_ = bytes_[at_++];
      zeros_ = current_ == 0 ? zeros_ + 1 : 0;
    }
    left_ = 8;
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t at_ = 0;
  std::size_t taken_ = 0;
  unsigned zeros_ = 0;
  std::uint32_t current_ = 0;
  unsigned left_ = 0;
  bool ok_ = true;
};

}  // namespace tallowmark
