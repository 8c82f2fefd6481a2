// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/EmulationRule.h"

#include "MediaKit/Container/ByteLanes.h"

namespace tallowmark {

namespace {

constexpr std::size_t stride = 4 * ByteLanes::width;

// Sixteen positions at a time: two zeros, then a byte below 3.
bool isAnyForbidden(const std::uint8_t* data) {
  const auto hit =
      ByteLanes::equal(data, 0) & ByteLanes::equal(data + 1, 0) & ByteLanes::atMost(data + 2, 2);
  return ByteLanes::any(hit);
}

// One question for four steps: two zeros are rare in what is coded.
bool hasTwoZeros(const std::uint8_t* data) {
  ByteLanes::Mask least = ByteLanes::all();
  for (std::size_t at = 0; at < stride; at += ByteLanes::width) {
    least = ByteLanes::least(least, ByteLanes::load(data + at) | ByteLanes::load(data + at + 1));
  }
  return ByteLanes::any(ByteLanes::equal(least, 0));
}

}  // namespace

std::optional<std::size_t> findForbiddenStretch(std::span<const std::uint8_t> bytes) {
  const std::uint8_t* const data = bytes.data();
  std::size_t at = 0;
  while (at + ByteLanes::width + 2 <= bytes.size()) {
    if (at + stride < bytes.size() && !hasTwoZeros(data + at)) {
      at += stride;
    } else if (isAnyForbidden(data + at)) {
      break;
    } else {
      at += ByteLanes::width;
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
