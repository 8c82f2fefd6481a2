// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "MediaKit/Walk/EvidenceWalk.h"

namespace tallowmark::VideoRepair {

/// Cameras stretch pictures in the dark and drop some when they are busy. What follows tells when,
/// in a clip of which nothing is lost; a clip that shows no sign of it stays as it is.

/// Whether a stream's picture order counts, where they skip some, skip the time of these, too.
enum class CountsTell { time, nothing, unknown };

/// As a good clip shows it. `intervals`: for each place in output order how many pictures' time its
/// counts have up to the next one.
CountsTell whatCountsTell(const Track& video, std::span<const std::uint32_t> intervals);

/// More than a few of a track's samples last otherwise than most of them.
bool hasVariableRate(const Track& video);

/// Sound that is stored ahead of a picture: of all samples before it.
struct SoundAnchor {
  std::uint64_t frame = 0;
  double seconds = 0;
};

/// One for each picture behind sound, of PCM or compressed sound, in order. `soundTick`: seconds of
/// a PCM sample or an AAC block. Behind blocks whose track cannot be told there are none.
std::vector<SoundAnchor> soundAnchors(const EvidencedFindings& found, double soundTick);

/// What the sound of a clip says about its pictures.
struct SoundPace {
  std::vector<SoundAnchor> anchors;
  /// All of it, in seconds.
  double seconds = 0;
  /// How far the reference's sound is ahead of its pictures where anchors are.
  SoundLead lead;
  /// By how many seconds its sound ends behind its pictures; absent where the clip's ends are not
  /// known to be the recording's.
  std::optional<double> endLead;
  /// The reference's pictures differ in length, or sound shows that the clip's do.
  bool variableRate = false;
  /// Of the reference's sound; 0 where that is not known.
  std::uint32_t samplingRate = 0;
};

/// Lets pictures last as long as their counts say: when the reference's do so, or when sound agrees
/// with it far better. Returns whether it did.
bool paceByCounts(SampleList& pictures, std::uint32_t timescale,
                  std::span<const std::uint32_t> intervals, CountsTell tell,
                  const SoundPace* sound);

/// Where pictures of their present durations would leave the distance to the sound that the
/// reference's keep, spreads them between the nearest places where they do not, evenly and as
/// little as can be. At `losses`, numbers of the pictures behind them, as much time may have passed
/// as the sound behind them tells. `delay`: pictures are decoded that many places before they are
/// shown, and it is with decoding that sound keeps its distance.
void paceBySound(SampleList& pictures, std::uint32_t timescale, const SoundPace& sound,
                 std::span<const std::uint64_t> losses, std::size_t delay);

/// That number, as the index of a good clip has it.
std::size_t decodingDelay(const Track& video);

}  // namespace tallowmark::VideoRepair
