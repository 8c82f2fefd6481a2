// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/ClipJoin.h"

#include <algorithm>
#include <limits>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Join/Compatibility.h"
#include "MediaKit/Join/JoinPlan.h"
#include "MediaKit/Join/JoinWriting.h"

namespace tallowmark::ClipJoin {

namespace {

Result resultOf(std::size_t parts, const Plan& joined) {
  Result result;
  result.parts = static_cast<std::int64_t>(parts);
  result.seconds = joined.movie.seconds();
  if (const Track* video = joined.movie.videoTrack()) {
    result.videoFrames = static_cast<std::int64_t>(video->samples.size());
  }
  for (const ByteRange& range : joined.ranges) {
    result.bytes = saturatingAdd(result.bytes, range.length());
  }
  result.extraTracksKept = joined.kept;
  result.extraTracksDropped = joined.dropped;
  return result;
}

void requireRoomInIndex(const Movie& movie) {
  for (const Track& track : movie.tracks) {
    if (track.samples.size() > std::numeric_limits<std::uint32_t>::max()) {
      throw MediaError::unsupported(
          "Together these clips have more sound than one clip can hold. Join fewer of them at a "
          "time.");
    }
  }
}

}  // namespace

Result summary(std::span<const Part> parts) {
  return resultOf(parts.size(), plan(parts));
}

Result join(std::span<const Part> parts, FileSink& destination, const Progress& progress,
            const StopToken& stop) {
  if (const auto message = incompatibility(parts)) {
    throw MediaError::unsupported(*message);
  }
  const Plan joined = plan(parts);
  requireRoomInIndex(joined.movie);
  writeJoined(parts, joined, destination, progress, stop);
  return resultOf(parts.size(), joined);
}

}  // namespace tallowmark::ClipJoin
