// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/JPEGMarkers.h"
#include "MediaKit/Photo/MarkerSearch.h"

namespace tallowmark::JPEGRepair {

/// Bits of entropy-coded data, first bit first, stuffed zeros left out (ISO/IEC 10918-1 clause
/// F.2.2.5). Stops in front of any marker and gives zeros from there on; `ranOut` tells.
class EntropyReader {
 public:
  EntropyReader(ByteView data, std::size_t start)
      : begin_(data.data()), at_(data.data() + start), end_(data.data() + data.size()) {}

  /// Makes at least 32 bits ready.
  void prepare() {
    if (ready_ < 32) {
      refill();
    }
  }
  /// Makes as many bits ready as fit: where it is hard to foresee whether they are needed, cheaper
  /// than to ask.
  void refill() {
    if (end_ - at_ >= 8) {
      const std::uint64_t word = bigEndianWord(at_);
      if (!holdsFF(word)) {
        // Bits past the last whole byte are the right ones, too: the next call sets them again.
        bits_ |= ready_ < 64 ? word >> static_cast<unsigned>(ready_) : 0;
        const int bytes = (64 - ready_) / 8;
        at_ += bytes;
        ready_ += 8 * bytes;
        return;
      }
    }
    refillByBytes();
  }
  // Prepared bits only, from here on.
  /// The next 16 bits.
  std::uint32_t peek16() const { return static_cast<std::uint32_t>(bits_ >> 48U); }
  void skip(unsigned count) {
    bits_ <<= count;
    ready_ -= static_cast<int>(count);
  }
  std::uint32_t take(unsigned count) {
    const auto value = static_cast<std::uint32_t>(bits_ >> 1U >> (63 - count));
    skip(count);
    return value;
  }

  /// Bits were taken that the data does not hold.
  bool ranOut() const { return ready_ < padding_; }

  /// Where the marker stands, or the data ends, once bits ran out; else where reading has come to.
  std::size_t position() const { return static_cast<std::size_t>(at_ - begin_); }

  /// Whole bytes that were read but not taken.
  std::size_t bytesLeft() const {
    return ready_ > padding_ ? static_cast<std::size_t>(ready_ - padding_) / 8 : 0;
  }

  /// Drops what is left of the current byte and steps over restart marker `number` (0 to 7). False
  /// when something else comes next; the reader is of no further use then.
  bool takeRestart(unsigned number) {
    if (bytesLeft() != 0 || ranOut()) {
      return false;
    }
    while (end_ - at_ >= 2 && at_[0] == 0xFF && at_[1] == 0xFF) {
      ++at_;
    }  // fill bytes
    if (end_ - at_ < 2 || at_[0] != 0xFF || at_[1] != (0xD0U | number)) {
      return false;
    }
    at_ += 2;
    bits_ = 0;
    ready_ = 0;
    padding_ = 0;
    return true;
  }

 private:
  static bool holdsFF(std::uint64_t word) {
    constexpr std::uint64_t low = 0x0101010101010101U;
    const std::uint64_t inverse = ~word;
    return ((inverse - low) & ~inverse & (low << 7U)) != 0;
  }

  void refillByBytes() {
    while (ready_ <= 56) {
      if (at_ == end_ || (at_[0] == 0xFF && (end_ - at_ < 2 || at_[1] != 0))) {
        padding_ += 64 - ready_;
        ready_ = 64;
        return;
      }
      bits_ |= static_cast<std::uint64_t>(at_[0]) << static_cast<unsigned>(56 - ready_);
      at_ += at_[0] == 0xFF ? 2 : 1;
      ready_ += 8;
    }
  }

  const std::uint8_t* begin_;
  const std::uint8_t* at_;
  const std::uint8_t* end_;
  std::uint64_t bits_ = 0;
  int ready_ = 0;
  int padding_ = 0;  // of the ready bits, and of those taken since the data ended
};

}  // namespace tallowmark::JPEGRepair
