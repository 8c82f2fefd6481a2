// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <limits>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

/// From the smallest sample offset of a movie to the largest sample end; empty without samples.
inline ByteRange writtenRange(const Movie& movie) {
  ByteRange range{std::numeric_limits<std::uint64_t>::max(), 0};
  for (const Track& track : movie.tracks) {
    for (const SampleRun& run : track.samples.runs()) {
      range.lower = std::min(range.lower, run.first.offset);
      range.upper = std::max(range.upper, run.end());
    }
  }
  return range.lower <= range.upper ? range : ByteRange{};
}

}  // namespace tallowmark
