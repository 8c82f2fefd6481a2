// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "MediaKit/Photo/MarkerSearch.h"

namespace tallowmark::JPEGRepair {

/// One table of a DHT segment, ready for decoding (ISO/IEC 10918-1 annexes C and F.2.2.3).
class HuffmanTable {
 public:
  static constexpr unsigned lookahead = 10;

  /// A code and how many bits it takes; length 0 when the bits begin no code.
  struct Code {
    std::uint8_t symbol = 0;
    std::uint8_t length = 0;
  };

  /// What one or a few AC symbols do to a block: how many bits their codes and values take, and by
  /// how many coefficients the block advances.
  struct Step {
    std::uint8_t bits = 0;
    std::uint8_t advance = 0;
  };
  /// Advances beyond any block: its end was coded, or the symbol is none.
  static constexpr std::uint8_t endOfBlock = 128;
  static constexpr std::uint8_t notASymbol = 64;
  /// Blocks that have this many coefficients to come may take `steps`; others, one `step`.
  static constexpr unsigned roomForSteps = 32;

  /// `counts` are the 16 numbers of codes by length. Nothing when no code has such lengths, or
  /// when the values are not all there.
  static std::optional<HuffmanTable> make(ByteView counts, ByteView values);

  /// `bits` holds the next 16 bits of the data.
  Code decode(std::uint32_t bits) const {
    const Code fast = short_[bits >> (16 - lookahead)];
    return fast.length != 0 ? fast : decodeLong(bits);
  }

  /// As decode, for AC symbols.
  Step step(std::uint32_t bits) const { return stepOf(decode(bits)); }

  /// As many symbols as the next bits hold whole codes of. Takes at most 32 bits.
  Step steps(std::uint32_t bits) const {
    const Step fast = steps_[bits >> (16 - stepLookahead)];
    return fast.bits != 0 ? fast : stepOf(decodeLong(bits));
  }

 private:
  static constexpr unsigned stepLookahead = 12;

  Code decodeLong(std::uint32_t bits) const;
  static Step stepOf(Code code);
  Step stepsOf(std::uint32_t bits) const;

  std::array<Code, 1U << lookahead> short_{};
  std::array<Step, 1U << stepLookahead> steps_{};
  // By length: one past the largest code, and what to add to a code to find its value.
  std::array<std::uint32_t, 17> codesEnd_{};
  std::array<std::int32_t, 17> valueOffset_{};
  std::array<std::uint8_t, 256> values_{};
};

/// Whether 16 counts can be the lengths of a prefix code: no more codes than bit patterns, at most
/// 256.
bool canBeHuffmanCode(ByteView counts);

}  // namespace tallowmark::JPEGRepair
