// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>

#include "MediaKit/Bitstream/BitReader.h"

/// What the usability information of both codecs' sequence parameter sets has alike (ITU-T H.264
/// §E.1.1, H.265 §E.2.1).
namespace tallowmark {

/// Passes aspect ratio, overscan, colour and the place of chroma samples: its beginning.
void skipVideoSignal(BitReader& bits);

/// Seconds of the clock tick, where a flag says that one is stated, and the flag behind it; nothing
/// where none is, or an impossible one.
std::optional<double> readClock(BitReader& bits);

}  // namespace tallowmark
