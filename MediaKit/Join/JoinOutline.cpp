// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/JoinOutline.h"

#include <algorithm>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Join/EssentialConfig.h"
#include "MediaKit/Join/SeamTiming.h"

namespace tallowmark::ClipJoin {

namespace {

using Bytes = std::vector<std::uint8_t>;

// A timecode's entry ends with the name of the reel, which may count on from file to file
// (QuickTime File Format, Timecode Sample Description).
Bytes continuityConfig(const Track& track) {
  constexpr std::size_t timecodeFields = 34;
  Bytes config = essentialConfig(track.sampleEntry, track.kind);
  if (track.handler == "tmcd" && config.size() > timecodeFields) {
    config.resize(timecodeFields);
    std::fill_n(config.begin(), 4, std::uint8_t{0});
  }
  return config;
}

/// What a track and one that continues it share.
using Likeness = std::tuple<Track::Kind, std::uint32_t, std::uint32_t, Bytes>;

Likeness likenessOf(const Track& track) {
  return {track.kind, track.handler.value, track.timescale, continuityConfig(track)};
}

/// The tracks of a part that continue none of the first part yet, alike ones together, the first of
/// them last.
using FreeTracks = std::map<Likeness, std::vector<const Track*>>;

FreeTracks freeTracksOf(const Movie& movie) {
  FreeTracks tracks;
  for (const Track& track : movie.tracks) tracks[likenessOf(track)].push_back(&track);
  for (auto& [likeness, alike] : tracks) std::reverse(alike.begin(), alike.end());
  return tracks;
}

/// The tracks of all parts that continue `first`, which stay free for others when one is missing.
/// A track continues one track only: two alike in each part stay two, and nothing is doubled.
std::optional<Strand> strandFrom(const Track& first, std::vector<FreeTracks>& laterParts) {
  const Likeness likeness = likenessOf(first);
  Strand strand{{&first}, {}, 0};
  std::vector<std::vector<const Track*>*> matches;
  for (FreeTracks& part : laterParts) {
    const auto alike = part.find(likeness);
    if (alike == part.end() || alike->second.empty()) {
      return std::nullopt;
    }
    matches.push_back(&alike->second);
    strand.pieces.push_back(alike->second.back());
  }
  for (auto* match : matches) match->pop_back();
  return strand;
}

std::vector<Strand> chooseStrands(std::span<const Part> parts, Outline& outline) {
  std::vector<FreeTracks> laterParts;
  for (const Part& part : parts.subspan(1)) laterParts.push_back(freeTracksOf(part.movie));

  std::vector<Strand> strands;
  std::set<Track::Kind> chosen;
  for (const Track& track : parts.front().movie.tracks) {
    const bool extra = track.kind == Track::Kind::other;
    if (!extra && chosen.contains(track.kind)) {
      continue;
    }
    auto strand = strandFrom(track, laterParts);
    if (extra) ++(strand ? outline.kept : outline.dropped);
    if (strand) {
      chosen.insert(track.kind);
      strands.push_back(std::move(*strand));
    }
  }
  return strands;
}

// The stretch of each part that holds the samples of all strands.
std::vector<ByteRange> rangesOf(std::size_t parts, std::span<const Strand> strands) {
  std::vector<ByteRange> ranges;
  for (std::size_t part = 0; part < parts; ++part) {
    ByteRange range{std::numeric_limits<std::uint64_t>::max(), 0};
    for (const Strand& strand : strands) {
      for (const SampleRun& run : strand.pieces[part]->samples.runs()) {
        range.lower = std::min(range.lower, run.first.offset);
        range.upper = std::max(range.upper, run.end());
      }
    }
    ranges.push_back(range.lower <= range.upper ? range : ByteRange{});
  }
  return ranges;
}

// Time that a part without samples of this track takes is added to the piece before it; ahead of
// the first sample the track starts later.
void giveTimeOfEmptyPieces(Strand& strand, const Movie& movie) {
  std::uint64_t waiting = 0;
  for (std::size_t part = strand.lengths.size(); part-- > 0;) {
    std::uint64_t& length = strand.lengths[part];
    length = saturatingAdd(length, waiting);
    waiting = strand.pieces[part]->samples.empty() ? std::exchange(length, 0) : 0;
  }
  if (strand.duration() > 0) {
    strand.delay = rescale(waiting, movie.timescale, strand.first().timescale);
  }
}

}  // namespace

std::uint64_t Strand::duration() const {
  std::uint64_t total = 0;
  for (const std::uint64_t length : lengths) total = saturatingAdd(total, length);
  return total;
}

const Strand* Outline::firstOf(Track::Kind kind) const {
  const auto strand = std::find_if(strands.begin(), strands.end(), [&](const Strand& candidate) {
    return candidate.first().kind == kind;
  });
  return strand == strands.end() ? nullptr : &*strand;
}

Outline outline(std::span<const Part> parts) {
  Outline made;
  if (parts.empty()) {
    return made;
  }
  made.strands = chooseStrands(parts, made);
  made.ranges = rangesOf(parts.size(), made.strands);
  timePieces(parts, made.strands);
  for (Strand& strand : made.strands) giveTimeOfEmptyPieces(strand, parts.front().movie);
  return made;
}

}  // namespace tallowmark::ClipJoin
