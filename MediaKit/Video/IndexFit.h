// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

/// Whether pictures stand where an index says. Where a card lost pieces of a file, or pieces of
/// another came in, all that lies behind has moved.
namespace tallowmark::IndexFit {

/// Whether the sample is made of units whose lengths, prefixes of `lengthSize` bytes, add up to its
/// own. Throws DeviceError.
bool isMadeOfUnits(const Sample& sample, std::size_t lengthSize, const ByteSource& clip);

/// Ends the tracks where pictures no longer stand where the index says, up to its last one, and
/// makes what lies behind a lost piece. Where that is so from the first pictures on, nothing is
/// left of the video. Looks at some dozen pictures; what is overwritten in between stays. Throws
/// DeviceError.
void cutToFit(Movie& movie, const ByteSource& clip);

}  // namespace tallowmark::IndexFit
