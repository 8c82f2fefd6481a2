// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Sound/BlockWalk.h"

namespace tallowmark {

/// How a good clip's AAC track looks: enough to find the blocks of another clip of its camera.
struct SoundHabits {
  AACConfig config;
  BlockRules rules;
  /// Bytes of the smallest and the largest block.
  std::uint32_t smallest = 0;
  std::uint32_t largest = 0;
  /// Of all blocks together.
  BlockTraits traits;
  /// Ticks of one block in the track's timescale.
  std::uint32_t ticks = 1024;
  /// The pattern most blocks have.
  ElementPattern usualPattern = 0;

  /// How much it proves, in bits, that what walks as `block` walks as one: other data does so by
  /// chance, and seldom keeps to this camera's ways.
  double evidence(const RawBlock& block) const;

  /// Walks up to some thousand samples of `track`. Nothing when it is no AAC-LC, or when samples do
  /// not end where their syntax does. Throws DeviceError.
  static std::optional<SoundHabits> learn(const Track& track, const ByteSource& source);
};

}  // namespace tallowmark
