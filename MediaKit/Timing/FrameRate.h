// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "MediaKit/Interleaving/BlockLayout.h"
#include "MediaKit/Timing/PicturePacing.h"
#include "MediaKit/Timing/StatedClock.h"
#include "MediaKit/Walk/EvidenceWalk.h"

namespace tallowmark::VideoRepair {

/// Anchors between which nothing is lost.
using AnchorStretches = std::vector<std::vector<SoundAnchor>>;

/// `losses`: numbers of the pictures behind them, in order.
AnchorStretches stretchesOf(const std::vector<SoundAnchor>& anchors,
                            const std::vector<std::uint64_t>& losses);

/// Seconds of sound to a picture: parallel lines through the anchors of stretches.
struct SoundRate {
  double perPicture = 0;
  /// How far apart nearly all anchors and all of them lie beside the lines, and how long these
  /// mostly are, in seconds of sound.
  double swing = 0;
  double width = 0;
  double length = 0;
  /// How long one would have to be to tell as much as they do together.
  double reach = 0;

  /// Nothing when there are too few anchors, or they reach less than two seconds.
  static std::optional<SoundRate> of(const AnchorStretches& stretches);

  /// The same from one anchor to the next, where nearly all of these steps are alike: sound in
  /// chunks between many losses, of which some took pictures unseen.
  static std::optional<SoundRate> ofSteps(const AnchorStretches& stretches);

  /// How far off `perPicture` may be, as a share of it.
  double error() const { return swing / reach; }
  /// Whether the anchors lie as close to the line as the reference's swing lets them.
  bool isSteady(const SoundLead& reference) const;
};

/// Seconds of a picture of a clip that was recorded at another of the rates that cameras have than
/// its reference, whose pictures last `frame` seconds: steady sound tells where nothing is lost.
/// Nothing when the rates are the same, or when something else can make as much more or less
/// sound, in PCM channels and sample rates, in AAC another number of tracks, and the clip does not
/// state the same. `blocks`: the reference's AAC sound, null for PCM. `hasTaughtChannels`: whether
/// PCM that is so many times the reference's is heard to have its channels. `stated`: how much
/// longer the clip's pictures last by its own word.
std::optional<double> otherPictureLength(const EvidencedFindings& found, const SoundPace& pace,
                                         double frame, const BlockLayout* blocks,
                                         const std::function<bool(double)>& hasTaughtChannels,
                                         std::optional<double> stated);

/// The same of a clip without sound, by its own word alone; believed where the reference's pictures
/// take one or two ticks of the clock that it states, as they do unless they were slowed down.
std::optional<double> statedPictureLength(const StatedClocks& clocks, double frame);

/// The sampling rate of a clip whose reference has sound of another one, `taught`, and else the
/// same: steady sound tells, where nothing is lost and where pictures of `frame` seconds ask for
/// just that rate and no other frame rate would do. Nothing where something else can make as much
/// more or less sound, or drop as many pictures. `blocks` as above.
std::optional<std::uint32_t> otherSamplingRate(const EvidencedFindings& found,
                                               const SoundPace& pace, double frame,
                                               std::uint32_t taught, const BlockLayout* blocks);

/// Whether sound gains on pictures of `frame` seconds somewhere where nothing is lost, by more than
/// the reference's does: a camera that drops pictures now and then, or takes fewer in the dark.
bool gainsOnPictures(const EvidencedFindings& found, const SoundPace& pace, double frame);

/// Lets each picture last that many ticks, or one more or less.
void showFor(SampleList& pictures, double ticks);

}  // namespace tallowmark::VideoRepair
