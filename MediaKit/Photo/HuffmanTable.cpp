// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/HuffmanTable.h"

#include <algorithm>
#include <numeric>

namespace tallowmark::JPEGRepair {

bool canBeHuffmanCode(ByteView counts) {
  if (counts.size() != 16) {
    return false;
  }
  std::uint32_t patterns = 1;
  std::uint32_t total = 0;
  for (const std::uint8_t count : counts) {
    patterns *= 2;
    if (count > patterns) {
      return false;
    }
    patterns -= count;
    total += count;
  }
  return total <= 256;
}

std::optional<HuffmanTable> HuffmanTable::make(ByteView counts, ByteView values) {
  if (!canBeHuffmanCode(counts)) {
    return std::nullopt;
  }
  const auto total = std::accumulate(counts.begin(), counts.end(), std::size_t{0});
  if (values.size() < total) {
    return std::nullopt;
  }
  HuffmanTable table;
  std::copy_n(values.begin(), total, table.values_.begin());
  std::uint32_t code = 0;
  std::size_t index = 0;
  for (unsigned length = 1; length <= 16; ++length) {
    table.valueOffset_[length] = static_cast<std::int32_t>(index) - static_cast<std::int32_t>(code);
    for (unsigned i = 0; i < counts[length - 1]; ++i, ++code, ++index) {
      if (length > lookahead) {
        continue;
      }
      const Code entry{values[index], static_cast<std::uint8_t>(length)};
      const std::size_t first = std::size_t{code} << (lookahead - length);
      const std::size_t span = std::size_t{1} << (lookahead - length);
      std::fill_n(table.short_.begin() + static_cast<std::ptrdiff_t>(first), span, entry);
    }
    table.codesEnd_[length] = code;
    code *= 2;
  }
  for (std::uint32_t bits = 0; bits < table.steps_.size(); ++bits) {
    table.steps_[bits] = table.stepsOf(bits << (16 - stepLookahead));
  }
  return table;
}

// Symbols whose codes lie in the first bits, as long as none but the last can fill a block.
HuffmanTable::Step HuffmanTable::stepsOf(std::uint32_t bits) const {
  Step total;
  while (total.advance < roomForSteps - 16 && total.bits < stepLookahead) {
    const Code code = decode(bits << total.bits & 0xFFFFU);
    if (code.length == 0 || total.bits + code.length > stepLookahead) {
      break;
    }
    const Step step = stepOf(code);
    total.bits = static_cast<std::uint8_t>(total.bits + step.bits);
    total.advance = static_cast<std::uint8_t>(total.advance + step.advance);
  }
  return total;
}

HuffmanTable::Code HuffmanTable::decodeLong(std::uint32_t bits) const {
  for (unsigned length = lookahead + 1; length <= 16; ++length) {
    const std::uint32_t code = bits >> (16 - length);
    if (code < codesEnd_[length]) {
      const auto index = static_cast<std::int32_t>(code) + valueOffset_[length];
      if (index < 0 || index > 255) {
        break;
      }
      return {values_[static_cast<std::size_t>(index)], static_cast<std::uint8_t>(length)};
    }
  }
  return {};
}

HuffmanTable::Step HuffmanTable::stepOf(Code code) {
  const unsigned run = code.symbol >> 4U;
  const unsigned size = code.symbol & 0x0FU;
  if (code.length == 0) {
    return {.bits = 16, .advance = notASymbol};
  }
  const auto bits = static_cast<std::uint8_t>(code.length + size);
  if (size == 0 && run == 0) {
    return {bits, endOfBlock};
  }
  if (size == 0 && run != 15) {
    return {bits, notASymbol};
  }
  return {bits, static_cast<std::uint8_t>(run + 1)};
}

}  // namespace tallowmark::JPEGRepair
