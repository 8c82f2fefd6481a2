// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark::VideoRepair {

/// How much longer the pictures of a clip last than its reference's by the clocks that parameter
/// sets state: the clip's between its pictures, `reference`'s in its description or between its
/// own. Cameras count a tick or two to a picture; so nothing but their ratio tells. H.264 only.
/// Nothing when one states none, or several. Throws DeviceError.
std::optional<double> statedRatio(const SampleList& clip, const ByteSource& clipSource,
                                  const Track& reference, const ByteSource& referenceSource,
                                  const NALFormat& format);

}  // namespace tallowmark::VideoRepair
