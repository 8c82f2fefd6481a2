// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/UnitHead.h"

namespace tallowmark {

namespace {

constexpr int prefixUnit = 14;
// Header and extension of the prefix unit (H.264 §7.3.1).
constexpr std::size_t prefixUnitBytes = 4;

bool isSliceHeader(std::uint8_t header) {
  const int type = header & 31;
  return (header & 0x80U) == 0 && (type == 1 || type == 5);
}

}  // namespace

void unwrapSlice(MediaWindow& window, UnitHead& head, std::size_t prefix) {
  if (head.type() != prefixUnit) {
    return;
  }
  // Messages of an encoder about itself stand between.
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(head.length, mostBytesOfHead));
  const auto unit = window.at(head.at, size);
  const auto bytes = unit.first(std::min(unit.size(), size));
  for (std::size_t at = prefix + prefixUnitBytes; at + 5 < bytes.size(); ++at) {
    const bool startCode = bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1;
    if (startCode && isSliceHeader(bytes[at + 3])) {
      const auto slice = bytes.subspan(at + 3);
      head.header = slice.front();
      head.count = std::min(slice.size(), head.first.size());
      std::copy_n(slice.begin(), head.count, head.first.begin());
      return;
    }
  }
}

}  // namespace tallowmark
