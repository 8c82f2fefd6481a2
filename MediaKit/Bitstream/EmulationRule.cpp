// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/EmulationRule.h"

#include "MediaKit/Container/ByteLanes.h"

namespace tallowmark {

std::optional<std::size_t> findForbiddenStretch(std::span<const std::uint8_t> bytes) {
  std::size_t at = 0;
  const std::uint8_t* data = bytes.data();
  // Sixteen positions at a time: two zeros, then a byte below 3.
  for (; at + ByteLanes::width + 2 <= bytes.size(); at += ByteLanes::width) {
    const auto hit = ByteLanes::equal(data + at, 0) & ByteLanes::equal(data + at + 1, 0) &
                     ByteLanes::atMost(data + at + 2, 2);
    if (ByteLanes::any(hit)) {
      break;
    }
  }
  for (; at + 3 <= bytes.size(); ++at) {
    if (data[at] == 0 && data[at + 1] == 0 && data[at + 2] < 3) {
      return at;
    }
  }
  return std::nullopt;
}

}  // namespace tallowmark
