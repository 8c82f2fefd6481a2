// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

/// Whether pictures stand where an index says. Where a card lost pieces of a file, or pieces of
/// another came in, all that lies behind has moved.
namespace tallowmark::IndexFit {

/// Whether the sample is made of units whose lengths, prefixes of `lengthSize` bytes, add up to its
/// own. Throws DeviceError.
bool isMadeOfUnits(const Sample& sample, std::size_t lengthSize, const ByteSource& clip);

/// What stands where a picture is said to be.
enum class Fit { fits, misfits, isEmpty };

/// Throws DeviceError.
Fit fitOf(const Sample& picture, std::size_t lengthSize, const ByteSource& clip);

/// Where the pictures end that stand where the index says, when those behind, up to its last one,
/// do not; 0 when that is so from the first pictures on. Nothing for an index that fits. Looks at
/// some dozen pictures; what is overwritten in between does not count. Throws DeviceError.
std::optional<std::uint64_t> endOfFit(const Movie& movie, const ByteSource& clip);

/// Ends the tracks there, and makes what lies behind a lost piece. Throws DeviceError.
void cutToFit(Movie& movie, const ByteSource& clip);

}  // namespace tallowmark::IndexFit
