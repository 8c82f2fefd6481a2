// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/JoinPlan.h"

#include <algorithm>

#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Join/JoinOutline.h"
#include "MediaKit/Join/SeamTiming.h"
#include "MediaKit/Join/TrackReferences.h"

namespace tallowmark::ClipJoin {

namespace {

SampleList concatenated(const Strand& strand, std::span<const ByteRange> ranges) {
  std::size_t runs = 0;
  for (const Track* piece : strand.pieces) runs += piece->samples.runs().size();
  SampleList joined;
  joined.reserveRuns(runs);
  std::uint64_t start = 0;
  for (std::size_t part = 0; part < ranges.size(); ++part) {
    const Track& piece = *strand.pieces[part];
    appendLasting(joined, piece.samples, start - ranges[part].lower, strand.lengths[part]);
    start += ranges[part].length();
  }
  return joined;
}

}  // namespace

Plan plan(std::span<const Part> parts) {
  Outline outlined = outline(parts);
  Plan joined{{}, std::move(outlined.ranges), outlined.kept, outlined.dropped};
  if (parts.empty()) {
    return joined;
  }
  joined.movie = parts.front().movie;
  joined.movie.tracks.clear();
  std::vector<std::uint32_t> carried;
  for (const Strand& strand : outlined.strands) {
    Track track = strand.first();
    track.startDelay = saturatingAdd(track.startDelay, strand.delay);
    track.samples = concatenated(strand, joined.ranges);
    carried.push_back(track.trackID);
    joined.movie.tracks.push_back(std::move(track));
  }
  std::sort(carried.begin(), carried.end());
  for (Track& track : joined.movie.tracks) keepReferencesTo(carried, track);
  return joined;
}

}  // namespace tallowmark::ClipJoin
