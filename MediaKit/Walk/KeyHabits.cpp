// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/KeyHabits.h"

#include "MediaKit/Bitstream/BitReader.h"

namespace tallowmark {

namespace {

constexpr std::uint32_t recoveryPoint = 6;

// Type and size of a message are counted up in bytes of 255 (H.264 §7.3.2.3.1).
std::uint32_t countedUp(BitReader& bits) {
  constexpr std::uint32_t more = 255;
  std::uint32_t sum = 0;
  std::uint32_t byte = more;
  while (bits.ok() && byte == more) {
    byte = bits.bits(8);
    sum += byte;
  }
  return sum;
}

}  // namespace

bool tellsRecovery(const UnitHead& unit, NALFormat::Codec codec) {
  const int messages = codec == NALFormat::Codec::h264 ? 6 : 39;
  if (unit.type() != messages) {
    return false;
  }
  BitReader bits(unit.bytes().subspan(unit.headerSize));
  while (bits.ok()) {
    const std::uint32_t type = countedUp(bits);
    const std::uint32_t size = countedUp(bits);
    if (type == recoveryPoint && size > 0) {
      return bits.ok();
    }
    bits.skip(std::size_t{size} * 8);
  }
  return false;
}

void KeyHabits::learn(const Picture& picture, bool isSync) {
  if (picture.resetsDecoding) {
    return;
  }
  if (picture.isIntra) intra_.count(isSync);
  if (picture.recovers) recovering_.count(isSync);
}

bool KeyHabits::isKey(const Picture& picture) const {
  return picture.resetsDecoding || (picture.isIntra && intra_.holds()) ||
         (picture.recovers && recovering_.holds());
}

}  // namespace tallowmark
