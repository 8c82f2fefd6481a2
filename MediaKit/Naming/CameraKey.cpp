// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/CameraKey.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "MediaKit/Naming/Utf8.h"

namespace tallowmark {

namespace {

struct Range {
  char32_t first;
  char32_t last;
};

bool isIn(const auto& ranges, char32_t code) {
  return std::any_of(ranges.begin(), ranges.end(),
                     [&](const Range& r) { return r.first <= code && code <= r.last; });
}

// The digits of the living scripts, and the other numbers that keyboards and input methods write
// (Unicode's categories Nd, Nl and No).
bool isNumber(char32_t code) {
  static constexpr std::array<Range, 44> numbers{{
      {'0', '9'},       {0xB2, 0xB3},     {0xB9, 0xB9},     {0xBC, 0xBE},     {0x660, 0x669},
      {0x6F0, 0x6F9},   {0x7C0, 0x7C9},   {0x966, 0x96F},   {0x9E6, 0x9EF},   {0xA66, 0xA6F},
      {0xAE6, 0xAEF},   {0xB66, 0xB6F},   {0xBE6, 0xBF2},   {0xC66, 0xC6F},   {0xCE6, 0xCEF},
      {0xD66, 0xD6F},   {0xDE6, 0xDEF},   {0xE50, 0xE59},   {0xED0, 0xED9},   {0xF20, 0xF29},
      {0x1040, 0x1049}, {0x17E0, 0x17E9}, {0x1810, 0x1819}, {0x1946, 0x194F}, {0x19D0, 0x19D9},
      {0x1A80, 0x1A89}, {0x1B50, 0x1B59}, {0x1BB0, 0x1BB9}, {0x1C40, 0x1C49}, {0x1C50, 0x1C59},
      {0x2070, 0x2070}, {0x2074, 0x2079}, {0x2080, 0x2089}, {0x2150, 0x2189}, {0x2460, 0x249B},
      {0x24EA, 0x24FF}, {0x2776, 0x2793}, {0x3007, 0x3007}, {0x3021, 0x3029}, {0x3220, 0x3229},
      {0x3251, 0x325F}, {0x3280, 0x3289}, {0x32B1, 0x32BF}, {0xFF10, 0xFF19},
  }};
  return isIn(numbers, code);
}

// Upper case for the scripts that have one and sit in regular blocks; file names of cameras use no
// others.
char32_t upperCase(char32_t code) {
  static constexpr std::array<Range, 6> thirtyTwoAbove{
      {{'a', 'z'}, {0xE0, 0xF6}, {0xF8, 0xFE}, {0x3B1, 0x3C1}, {0x3C3, 0x3CB}, {0x430, 0x44F}}};
  static constexpr std::array<Range, 2> pairsOddLower{{{0x100, 0x137}, {0x14A, 0x177}}};
  if (isIn(thirtyTwoAbove, code)) return code - 32;
  if (code >= 0x450 && code <= 0x45F) return code - 80;
  if (code >= 0x561 && code <= 0x586) return code - 48;
  if (code >= 0xFF41 && code <= 0xFF5A) return code - 32;
  return isIn(pairsOddLower, code) && code != 0x131 && code % 2 == 1 ? code - 1 : code;
}

}  // namespace

std::string cameraKey(const std::filesystem::path& file) {
  const std::string name = file.filename().string();
  std::string key;
  for (std::string_view rest = name; !rest.empty();) {
    const Utf8Character next = firstCharacter(rest);
    if (isNumber(next.code)) {
      break;
    }
    appendCharacter(key, upperCase(next.code));
    rest.remove_prefix(next.length);
  }
  return key;
}

}  // namespace tallowmark
