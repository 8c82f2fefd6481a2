// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tallowmark {

/// A four-character code, its first character most significant (ISO/IEC 14496-12 §4.2).
struct FourCC {
  std::uint32_t value = 0;

  constexpr FourCC() = default;
  constexpr explicit FourCC(std::uint32_t code) : value(code) {}
  /// The first four bytes of `literal`; a shorter one gives a smaller number, without padding.
  // Literals stand for codes all over the container code.
  constexpr FourCC(const char* literal) : FourCC(std::string_view(literal)) {}  // NOLINT
  constexpr explicit FourCC(std::string_view literal) {
    for (std::size_t i = 0; i < literal.size() && i < 4; ++i) {
      value = (value << 8U) | static_cast<std::uint8_t>(literal[i]);
    }
  }

  /// The four bytes as ISO Latin-1 text, in UTF-8 (0xA9 is "©").
  std::string description() const;

  /// Whether every byte is printable ASCII or the © of user-data keys: tells a box header from
  /// noise.
  constexpr bool isPlausible() const {
    for (unsigned shift = 0; shift < 32; shift += 8) {
      const std::uint32_t byte = (value >> shift) & 0xFFU;
      if (byte != 0xA9 && (byte < 0x20 || byte > 0x7E)) {
        return false;
      }
    }
    return true;
  }

  friend constexpr bool operator==(FourCC, FourCC) = default;
};

}  // namespace tallowmark

template <>
struct std::hash<tallowmark::FourCC> {
  std::size_t operator()(tallowmark::FourCC code) const noexcept { return code.value; }
};
