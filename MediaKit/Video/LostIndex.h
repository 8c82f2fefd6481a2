// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

/// Clips whose boxes lead nowhere: their head is overwritten, or a size that was never written or
/// is damaged hides what follows.
namespace tallowmark::LostIndex {

/// The index that such a clip still holds near its end or its start. What an earlier recording left
/// on the card is none: the pictures must stand where it says. Throws DeviceError.
std::optional<Movie> find(const ByteSource& clip);

/// Whether pictures of H.264 or HEVC behind length prefixes (ISO/IEC 14496-15 §5.3, §8.3) stand
/// near its start, whatever is around them. Throws DeviceError.
bool holdsPictures(const ByteSource& clip);

}  // namespace tallowmark::LostIndex
