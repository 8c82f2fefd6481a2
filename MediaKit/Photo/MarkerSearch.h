// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tallowmark {

/// Bytes of a whole file, borrowed.
using ByteView = std::span<const std::uint8_t>;

/// The first position from `from` on that holds 0xFF `code`; the data's size when there is none.
/// As fast on a stretch full of 0xFF as on any other.
std::size_t findMarker(ByteView data, std::size_t from, std::uint8_t code);

/// As findMarker, for 0xFF 0xD8 0xFF: an SOI and the marker behind it.
std::size_t findStartOfImage(ByteView data, std::size_t from);

/// The last position before `before` that holds 0xFF `code` wholly before it; `before` when there
/// is none.
std::size_t findMarkerBackwards(ByteView data, std::size_t before, std::uint8_t code);

/// The first position from `from` on with a 0xFF that is followed by neither 0x00 nor a restart
/// marker's code: entropy-coded data cannot hold it (ISO/IEC 10918-1 clause B.1.1.5). The data's
/// size when there is none.
std::size_t findScanInterruption(ByteView data, std::size_t from);

}  // namespace tallowmark
