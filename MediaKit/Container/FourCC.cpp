// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/FourCC.h"

namespace tallowmark {

std::string FourCC::description() const {
  std::string text;
  for (unsigned shift = 32; shift > 0; shift -= 8) {
    const std::uint32_t byte = (value >> (shift - 8)) & 0xFFU;
    if (byte < 0x80) {
      text += static_cast<char>(byte);
    } else {
      text += static_cast<char>(0xC0U | (byte >> 6U));
      text += static_cast<char>(0x80U | (byte & 0x3FU));
    }
  }
  return text;
}

}  // namespace tallowmark
