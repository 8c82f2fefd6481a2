// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>

#include "DeviceKit/FileSink.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Join/Part.h"

namespace tallowmark::ClipJoin {

/// The facts of a join.
struct Result {
  /// Pieces joined.
  std::int64_t parts = 0;
  /// Length of the joined movie.
  double seconds = 0;
  std::int64_t videoFrames = 0;
  /// Media bytes copied from the pieces.
  std::uint64_t bytes = 0;
  /// Tracks beside picture and sound that were carried over, and those that some piece lacks.
  std::int64_t extraTracksKept = 0;
  std::int64_t extraTracksDropped = 0;

  friend bool operator==(const Result&, const Result&) = default;
};

/// What a join of the parts will be; nothing is read or written. Never throws.
Result summary(std::span<const Part> parts);

/// Joins the parts, in playing order, without re-encoding. Throws MediaError::unsupported with the
/// sentence of `incompatibility`, or one that names a part which is cut short or no longer the file
/// that was checked; DeviceError of either end; Stopped. `destination` then holds nothing of use.
Result join(std::span<const Part> parts, FileSink& destination, const Progress& progress = {},
            const StopToken& stop = {});

/// Writes the last `before` seconds of the first part, from a key frame on, and the first `after`
/// seconds of the second as they will follow one another. Throws as join, MediaError::noVideo, and
/// MediaError::malformed when the second part does not start on a key frame.
void writeSeam(std::span<const Part> parts, double before, double after, FileSink& destination,
               const StopToken& stop = {});

}  // namespace tallowmark::ClipJoin
