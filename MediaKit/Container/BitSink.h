// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace tallowmark {

/// Bytes that are written bit by bit, most significant first.
class BitSink {
 public:
  /// The lowest `count` bits of `value`, at most 32.
  void put(std::uint32_t value, unsigned count) {
    for (; count > 0; --count, ++bits_) {
      if (bits_ % 8 == 0) {
        bytes_.push_back(0);
      }
      const std::uint32_t bit = (value >> (count - 1)) & 1U;
      bytes_.back() = static_cast<std::uint8_t>(bytes_.back() | (bit << (7 - bits_ % 8)));
    }
  }
  /// What was written; the last byte is filled up with zeros.
  std::vector<std::uint8_t> take() { return std::move(bytes_); }

 private:
  std::vector<std::uint8_t> bytes_;
  std::size_t bits_ = 0;
};

}  // namespace tallowmark
