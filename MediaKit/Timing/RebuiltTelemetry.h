// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Walk/SideCollector.h"

namespace tallowmark::VideoRepair {

/// The pictures of a rebuilt clip with what is needed to place other tracks beside them.
struct PictureTimes {
  /// All that were found, with their final durations; the first `cut` of them are not shown.
  const SampleList& pictures;
  std::uint64_t cut = 0;
  /// Numbers of the pictures ahead of which something is lost.
  const std::vector<std::uint64_t>& losses;
};

/// The reference's telemetry track with the samples that were found. Each follows the one before at
/// the reference's distance; behind a loss it has the time of the pictures it is stored with, and
/// the sample before it lasts as long. Has no samples when none belongs to pictures that are shown.
Track rebuildTelemetry(const SideFindings& found, const Movie& reference,
                       const TelemetryHabits& habits, const PictureTimes& times);

/// The reference's timecode track with the value that stands at `position`, as long as `video`.
Track rebuildTimecode(std::uint64_t position, const Movie& reference, const TimecodePlace& place,
                      const Track& video);

/// Tells the tracks of a rebuilt movie where their timecode is, as the reference's are told.
void referToTimecode(Movie& movie, const Movie& reference, std::uint32_t timecodeID);

}  // namespace tallowmark::VideoRepair
