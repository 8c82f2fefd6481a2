// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/SilentBlock.h"

#include <algorithm>

#include "MediaKit/Container/BitSink.h"

namespace tallowmark {

namespace {

constexpr unsigned windowInfoBits = 11;
constexpr unsigned gainBits = 8;
// No pulses, no noise shaping, no gain control.
constexpr unsigned toolBits = 3;

}  // namespace

std::vector<std::uint8_t> silentBlock(ElementPattern pattern) {
  std::vector<std::uint32_t> elements;
  for (; pattern != 0; pattern >>= 8U) {
    elements.push_back(pattern & 0x7FU);
  }
  std::reverse(elements.begin(), elements.end());
  BitSink sink;
  for (const std::uint32_t element : elements) {
    sink.put(element, 7);
    switch (static_cast<BlockElement>(element >> 4U)) {
      case BlockElement::singleChannel:
      case BlockElement::lowFrequency:
        sink.put(0, gainBits + windowInfoBits + toolBits);
        break;
      case BlockElement::channelPair:
        sink.put(1, 1);  // one window for both
        sink.put(0, windowInfoBits + 2);
        sink.put(0, gainBits + toolBits);
        sink.put(0, gainBits + toolBits);
        break;
      default:
        return {};
    }
  }
  sink.put(static_cast<std::uint32_t>(BlockElement::end), 3);
  return sink.take();
}

}  // namespace tallowmark
