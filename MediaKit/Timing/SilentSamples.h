// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark::VideoRepair {

/// Players take every PCM sample for as long as any other: those that are held in a movie's PCM
/// tracks become of usual length, with silent ones behind them. Returns the bytes of silence, which
/// belong right behind the last byte of any sample; none where nothing is held.
std::vector<std::uint8_t> fillHolds(Movie& movie);

/// What fills the sound of a movie.
struct FilledSilence {
  /// As fillHolds returns them.
  std::vector<std::uint8_t> bytes;
  /// Blocks of AAC, in all tracks.
  std::uint64_t blocks = 0;
};

/// The same, and the same ahead of lost pieces for blocks of AAC that last as long as two or more
/// and for packets of PCM that last longer than their bytes, of a movie whose index is that of
/// `clip`. Throws DeviceError.
FilledSilence fillLostSound(Movie& movie, const ByteSource& clip);

}  // namespace tallowmark::VideoRepair
