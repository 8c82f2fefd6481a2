// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/VideoUsability.h"

#include <cstdint>

namespace tallowmark {

void skipVideoSignal(BitReader& bits) {
  constexpr std::uint32_t extendedAspect = 255;
  if (bits.flag() && bits.bits(8) == extendedAspect) bits.skip(32);
  if (bits.flag()) bits.bit();
  if (bits.flag()) {
    bits.skip(4);
    if (bits.flag()) bits.skip(24);
  }
  if (bits.flag()) {
    bits.ue();
    bits.ue();
  }
}

std::optional<double> readClock(BitReader& bits) {
  if (!bits.flag()) {
    return std::nullopt;
  }
  const std::uint32_t units = bits.bits(32);
  const std::uint32_t scale = bits.bits(32);
  bits.bit();
  const bool isStated = bits.ok() && units > 0 && scale > 0;
  return isStated ? std::optional(static_cast<double>(units) / scale) : std::nullopt;
}

}  // namespace tallowmark
