// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

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
  /// Bit n: elements of kind n begin not only the odd block, as an encoder's name does the first.
  std::uint8_t usualFirstElements = 0;
  /// The pattern most blocks have.
  ElementPattern usualPattern = 0;
  /// Each block's windows fit those of the one before, as they should.
  bool windowsFit = true;
  /// Short blocks that come again and again, as encoders write stillness; in order.
  std::vector<std::vector<std::uint8_t>> repeated;

  /// How much it proves, in bits, that `bytes`, which walk as `block`, walk as one: other data does
  /// so by chance, and seldom keeps to this camera's ways.
  double evidence(const RawBlock& block, std::span<const std::uint8_t> bytes) const;

  /// Whether a block whose first 32 bits these are may be like this camera's: a quick refusal by
  /// gain and bands, ahead of a walk, of what begins with a channel.
  bool mayBeginAs(std::uint32_t first) const;

  /// Walks up to some thousand samples of `track`. Nothing when it is no AAC-LC, or when samples do
  /// not end where their syntax does. Throws DeviceError.
  static std::optional<SoundHabits> learn(const Track& track, const ByteSource& source);
};

}  // namespace tallowmark
