// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Interleaving/SoundLayout.h"
#include "MediaKit/Walk/EvidenceWalk.h"

/// Whether what lies between a clip's pictures can be PCM sound at all. Compressed sound takes a
/// fraction of its bytes, but now and then a whole number of its samples.
namespace tallowmark::VideoRepair {

/// Too many of a clip's gaps are not as the reference's for it to be the same kind of recording,
/// unless damage is why.
bool areStrange(std::span<const PictureGap> gaps);

/// The gaps between pictures that count on hold far fewer bytes than such sound takes in their
/// time, and most of them are none of its gaps. Few gaps tell nothing. `bytesPerPicture`: of the
/// reference's sound in the time of a picture. Throws DeviceError.
bool isForeignSound(std::span<const PictureGap> gaps, double bytesPerPicture,
                    const SoundLayout& layout, const ByteSource& source);

}  // namespace tallowmark::VideoRepair
