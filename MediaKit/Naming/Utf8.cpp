// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/Utf8.h"

#include <array>
#include <cstdint>

namespace tallowmark {

namespace {

constexpr char32_t outsideUnicode = 0x110000;

std::size_t announcedLength(std::uint8_t lead) {
  if (lead >= 0xC2 && lead < 0xE0) return 2;
  if (lead >= 0xE0 && lead < 0xF0) return 3;
  return lead >= 0xF0 && lead < 0xF5 ? 4 : 1;
}

}  // namespace

Utf8Character firstCharacter(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
  const std::size_t length = announcedLength(byte(0));
  if (byte(0) < 0x80) {
    return {byte(0), 1};
  }
  const Utf8Character loneByte{outsideUnicode + byte(0), 1};
  if (length == 1 || text.size() < length) {
    return loneByte;
  }
  char32_t code = byte(0) & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80U) {
      return loneByte;
    }
    code = (code << 6U) | (byte(i) & 0x3FU);
  }
  constexpr std::array<char32_t, 5> smallest{0, 0, 0x80, 0x800, 0x10000};
  const bool wellFormed = code >= smallest.at(length) && code < outsideUnicode;
  return wellFormed ? Utf8Character{code, length} : loneByte;
}

void appendCharacter(std::string& text, char32_t code) {
  const auto put = [&](char32_t byte) { text += static_cast<char>(byte & 0xFFU); };
  if (code >= outsideUnicode) {
    put(code - outsideUnicode);
  } else if (code < 0x80) {
    put(code);
  } else {
    if (code < 0x800) {
      put(0xC0U | (code >> 6U));
    } else if (code < 0x10000) {
      put(0xE0U | (code >> 12U));
      put(0x80U | ((code >> 6U) & 0x3FU));
    } else {
      put(0xF0U | (code >> 18U));
      put(0x80U | ((code >> 12U) & 0x3FU));
      put(0x80U | ((code >> 6U) & 0x3FU));
    }
    put(0x80U | (code & 0x3FU));
  }
}

std::string_view startOf(std::string_view text, std::size_t bytes) {
  std::size_t end = 0;
  while (end < text.size()) {
    const std::size_t length = firstCharacter(text.substr(end)).length;
    if (end + length > bytes) {
      break;
    }
    end += length;
  }
  return text.substr(0, end);
}

}  // namespace tallowmark
