// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

/// Stretches of a clip that hold nothing though its index says that pictures stand there. A copy
/// from a failing card has zeros where blocks could not be read, or where it ended; flash that was
/// erased reads as ones. No unit of a picture is that long or that short (ISO/IEC 14496-15 §5.3.2).
namespace tallowmark::BlankStretches {

/// How many samples stand in such at the clip's end, those of PCM aside; 0 where some are
/// elsewhere, nothing where none are. Looks at some dozen pictures: what is shorter than the
/// distance between two of them may be missed. A clip of which nothing was written has none: there
/// is nothing to cut free. Throws DeviceError.
std::optional<std::uint64_t> missingIn(const Movie& movie, const ByteSource& clip);

/// Whether no picture of those that are looked at was ever written. Throws DeviceError.
bool isAllOf(const Movie& movie, const ByteSource& clip);

/// Takes blank samples there out of `movie`, and makes the ones ahead last until the ones behind;
/// notes the stretches as lost pieces. Where the clip's beginning is blank it begins at the first
/// key picture behind, and sound with it. Side tracks end with the pictures. Throws DeviceError.
void takeOut(Movie& movie, const ByteSource& clip);

}  // namespace tallowmark::BlankStretches
