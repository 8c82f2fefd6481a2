// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// Uncompressed sound whose samples all have one size, so that its bytes need no index.
struct PCMLayout {
  /// Bytes of one sample over all channels.
  std::uint32_t sampleSize = 0;

  /// Nothing for compressed sound and for tracks without samples of one common size.
  static std::optional<PCMLayout> of(const Track& track);

  /// The same, and for dashcams' sound of one byte a sample by the laws of ITU-T G.711.
  static std::optional<PCMLayout> ofEvenSamples(const Track& track);

  friend bool operator==(const PCMLayout&, const PCMLayout&) = default;
};

}  // namespace tallowmark
