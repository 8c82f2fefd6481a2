// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/ClipJoin.h"

#include <algorithm>
#include <limits>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Join/Compatibility.h"
#include "MediaKit/Join/JoinOutline.h"
#include "MediaKit/Join/JoinPlan.h"
#include "MediaKit/Join/JoinWriting.h"

namespace tallowmark::ClipJoin {

namespace {

Result resultOf(std::size_t parts, const Outline& outlined) {
  Result result;
  result.parts = static_cast<std::int64_t>(parts);
  for (const Strand& strand : outlined.strands) {
    const double ticks = strand.first().timescale == 0 ? 1 : strand.first().timescale;
    result.seconds = std::max(result.seconds, static_cast<double>(strand.duration()) / ticks);
  }
  if (const Strand* video = outlined.firstOf(Track::Kind::video)) {
    for (const Track* piece : video->pieces) {
      result.videoFrames += static_cast<std::int64_t>(piece->samples.size());
    }
  }
  for (const ByteRange& range : outlined.ranges) {
    result.bytes = saturatingAdd(result.bytes, range.length());
  }
  result.extraTracksKept = outlined.kept;
  result.extraTracksDropped = outlined.dropped;
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
  return resultOf(parts.size(), outline(parts));
}

Result join(std::span<const Part> parts, FileSink& destination, const Progress& progress,
            const StopToken& stop) {
  if (const auto message = incompatibility(parts)) {
    throw MediaError::unsupported(*message);
  }
  const Plan joined = plan(parts);
  requireRoomInIndex(joined.movie);
  writeJoined(parts, joined, destination, progress, stop);
  return summary(parts);
}

}  // namespace tallowmark::ClipJoin
