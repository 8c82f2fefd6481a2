// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/MediaWindow.h"

namespace tallowmark {

/// The first bytes of a length-prefixed unit in a file: all that is needed to judge it.
struct UnitHead {
  static constexpr std::size_t mostBytes = 56;

  /// Position of the length prefix.
  std::uint64_t at = 0;
  /// Bytes, prefix included.
  std::uint64_t length = 0;
  std::uint16_t header = 0;
  std::size_t headerSize = 1;
  std::size_t count = 0;
  std::array<std::uint8_t, mostBytes> first{};

  /// The unit from its header on, as far as it is held here.
  std::span<const std::uint8_t> bytes() const { return std::span(first).first(count); }
  std::uint8_t afterHeader() const { return headerSize < count ? first[headerSize] : 0; }
  int type() const { return headerSize == 1 ? header & 31 : (header >> 9) & 63; }
};

/// No more bytes than these are looked at from a unit's start on.
inline constexpr std::size_t mostBytesOfHead = std::size_t{4} << 10U;

/// The slice inside a unit that wraps it (NALFormat::wrapsSlices): the head as if the slice stood
/// there itself. Units that wrap nothing stay as they are.
void unwrapSlice(MediaWindow& window, UnitHead& head, std::size_t prefix);

/// The unit at `at`, if it has a length that fits before `limit` and a header without the forbidden
/// bit.
inline std::optional<UnitHead> readUnitHead(MediaWindow& window, std::uint64_t at,
                                            std::uint64_t limit, const NALFormat& format) {
  const std::size_t prefix = format.lengthSize;
  const auto bytes = window.at(at, prefix + UnitHead::mostBytes);
  if (bytes.size() < prefix + 2) {
    return std::nullopt;
  }
  UnitHead head;
  head.at = at;
  std::uint64_t body = 0;
  for (std::size_t i = 0; i < prefix; ++i) {
    body = (body << 8U) | bytes[i];
  }
  if (body < 2 || at + prefix > limit || body > limit - at - prefix ||
      (bytes[prefix] & 0x80U) != 0) {
    return std::nullopt;
  }
  head.length = prefix + body;
  head.headerSize = format.headerSize();
  head.header = static_cast<std::uint16_t>(
      head.headerSize == 1 ? bytes[prefix] : (bytes[prefix] << 8U) | bytes[prefix + 1]);
  head.count = static_cast<std::size_t>(
      std::min<std::uint64_t>({body, UnitHead::mostBytes, bytes.size() - prefix}));
  std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(prefix), head.count, head.first.begin());
  if (format.wrapsSlices) {
    unwrapSlice(window, head, prefix);
  }
  return head;
}

}  // namespace tallowmark
