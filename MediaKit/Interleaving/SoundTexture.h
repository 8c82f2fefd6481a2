// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Interleaving/PCMLayout.h"

namespace tallowmark {

/// Tells PCM sound from compressed data by its bytes: in sound the most significant byte of a
/// channel moves little from one sample to the next, in compressed data every byte is as good as
/// random. Needs neither byte order nor bit depth.
class SoundTexture {
 public:
  /// Measures the reference's sound. Throws DeviceError.
  static SoundTexture learn(const Track& audio, PCMLayout pcm, const ByteSource& source);

  /// The reference's sound can be told from noise at all.
  bool isTelling() const { return largestStep_ > 0; }

  /// Bytes that are judged together: whole samples, enough of them for a steady mean.
  std::size_t blockSize() const { return blockSize_; }

  /// Whether a block of whole samples moves as the reference's sound does. Zeros are sound only
  /// where the reference has such silence: cameras and card readers leave them for other reasons.
  bool isSound(std::span<const std::uint8_t> block) const;
  static bool isZeros(std::span<const std::uint8_t> block);
  /// Sound that is not still.
  bool isHeard(std::span<const std::uint8_t> block) const {
    return isSound(block) && !isZeros(block);
  }
  /// Whether it moves more than that. Zeros do not.
  bool isNoise(std::span<const std::uint8_t> block) const;
  /// Whether it is like no sound, however loud: as good as random in every byte of its samples, or
  /// zeros, where the reference has no such silence.
  bool isNoSound(std::span<const std::uint8_t> block) const;

 private:
  double smallestStep(std::span<const std::uint8_t> block) const;

  std::uint32_t sampleSize_ = 1;
  /// Samples of one byte by a law of ITU-T G.711: as loud as each is, in steps of it. Empty for
  /// others.
  std::vector<std::uint8_t> loudness_;
  std::size_t blockSize_ = 1024;
  double largestStep_ = 0;
  bool hasDigitalSilence_ = false;
};

}  // namespace tallowmark
