// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Join/Part.h"

namespace tallowmark::ClipJoin {

/// What a joined clip will be.
struct Plan {
  /// Sample offsets count from the first byte of the concatenated ranges.
  Movie movie;
  /// The media bytes to copy: the i-th range lies in the i-th part.
  std::vector<ByteRange> ranges;
  /// Extra tracks (telemetry, timecode, …) that every part has, and those some part lacks.
  std::int64_t kept = 0;
  std::int64_t dropped = 0;
};

/// Chooses the tracks that every part has and lays their samples one after another, so that the
/// tracks of each part start together. Time and memory grow with the runs of the sample lists.
/// Never throws, whatever the parts are; what it gives for parts that do not fit is not for use.
Plan plan(std::span<const Part> parts);

}  // namespace tallowmark::ClipJoin
