// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Walk/EvidenceWalk.h"

/// PCM tracks that take turns, as a walk found them: sample by sample beside the first.
namespace tallowmark::VideoRepair {

/// Bytes of all of them.
std::uint64_t bytesOfPCM(const EvidencedFindings& found);

/// Leaves all of it out.
void giveUpPCM(EvidencedFindings& found);

/// Makes tracks of them: `first`, which is `reference`'s first track of sound and ready but for its
/// samples, and the others as described there, which start as much later than there as it does.
/// What of a track is lost while the first has it is time in which the sample before is held.
std::vector<Track> rebuildPCM(const EvidencedFindings& found, const Movie& reference, Track first);

}  // namespace tallowmark::VideoRepair
