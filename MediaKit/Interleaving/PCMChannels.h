// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/SampleList.h"
#include "MediaKit/Interleaving/PCMLayout.h"

namespace tallowmark {

/// Whether PCM of which there is twice or half as much as a reference's has the reference's
/// channels all the same. Of two hypotheses about a sample's size, one twice the other: by the
/// smaller, bytes that far apart are the same channel's, one sample later, and move as little from
/// either half of the larger. Else they are two channels', which differ by more or by less than a
/// sample from the next. `ratio`: how many times as much; `sound`: what was found, whose stretches
/// begin with whole samples. False for other ratios, and where nothing is told. Throws DeviceError.
bool hasChannelsOf(const PCMLayout& reference, double ratio, const SampleList& sound,
                   const ByteSource& source);

}  // namespace tallowmark
