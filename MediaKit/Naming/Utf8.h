// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tallowmark {

/// One character of a file name and the bytes it takes.
struct Utf8Character {
  char32_t code = 0;
  std::size_t length = 1;
};

/// The character at the start of `text`, which is not empty. File names are any bytes: one that
/// starts no well-formed character (RFC 3629) stands for itself, with a code outside Unicode.
Utf8Character firstCharacter(std::string_view text);

/// Appends a character; the opposite of firstCharacter.
void appendCharacter(std::string& text, char32_t code);

/// The longest start of `text` of at most `bytes` bytes that cuts no character in two.
std::string_view startOf(std::string_view text, std::size_t bytes);

}  // namespace tallowmark
