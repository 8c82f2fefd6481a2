// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Video/EvidenceWalk.h"
#include "MediaKit/Video/SoundLayout.h"

namespace tallowmark::VideoRepair {

/// Keeps sound and picture together where something is lost. Frames ahead of the first key frame
/// will go: the sound that belongs to them goes, too. Behind every later loss the one that lost
/// more is held (a longer last frame, or silence) until both are as far apart in the file as in the
/// reference. `audio` receives a delay where its beginning is lost. Sound that cannot be this
/// reference's is given up.
void keepInStep(EvidencedFindings& found, const SoundLayout& layout, std::uint32_t videoTimescale,
                std::uint32_t movieTimescale, Track& audio);

}  // namespace tallowmark::VideoRepair
