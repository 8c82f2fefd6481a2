// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Interleaving/SoundLayout.h"
#include "MediaKit/Walk/EvidenceWalk.h"

namespace tallowmark::VideoRepair {

/// A sample that is held longer than its kind.
struct Hold {
  std::uint64_t sample = 0;
  /// Ticks.
  std::uint32_t extra = 0;
};

/// The list with some samples held; `holds` are in order.
SampleList withHolds(const SampleList& samples, const std::vector<Hold>& holds);

/// Seconds as ticks, within what a sample's duration holds.
std::uint32_t ticks(double seconds, std::uint32_t timescale);

/// Seconds at which each of a list's samples starts, and at which the last one ends.
std::vector<double> startSeconds(const SampleList& samples, std::uint32_t timescale);

/// The number of the first key frame; 0 when there is none.
std::uint64_t firstKeyframe(const SampleList& video);

/// Whether the sound found can be that of the pictures: half or double tells that the reference
/// records other channels or another rate, and its description would play the bytes at the wrong
/// speed. It is held against all of the pictures and, as it may end before them or be stored behind
/// them in a file that was cut, against those that it was due with by the reference's `lead`. Short
/// clips cannot tell. `pictures` and `sound`: seconds of all that was found; `soundTick`: of a PCM
/// sample or an AAC block.
bool ratesAgree(const EvidencedFindings& found, const SoundLead& lead, double pictures,
                double sound, double soundTick);

/// Keeps PCM sound and picture together where something is lost. Frames ahead of the first key
/// frame will go: the sound that belongs to them goes, too. Behind every later loss the one that
/// lost more is held (a longer last frame, or a longer sample of sound, which `fillHolds` fills
/// with silence) until sound is as far ahead of the pictures right behind it as before. `audio`
/// receives a delay where its beginning is lost. Sound that cannot be this reference's is given up.
void keepInStep(EvidencedFindings& found, const SoundLayout& layout, std::uint32_t videoTimescale,
                std::uint32_t movieTimescale, Track& audio);

}  // namespace tallowmark::VideoRepair
