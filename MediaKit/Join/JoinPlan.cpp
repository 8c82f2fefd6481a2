// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/JoinPlan.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <utility>

#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Join/EssentialConfig.h"
#include "MediaKit/Join/Strand.h"
#include "MediaKit/Join/TrackReferences.h"

namespace tallowmark::ClipJoin {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// A track and what decides whether another one continues it.
struct Candidate {
  const Track* track = nullptr;
  Bytes config;
  /// It already continues a track of the first part.
  bool taken = false;

  bool continues(const Candidate& other) const {
    return !taken && track->kind == other.track->kind && track->handler == other.track->handler &&
           track->timescale == other.track->timescale && config == other.config;
  }
};

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

std::vector<Candidate> candidatesOf(const Movie& movie) {
  std::vector<Candidate> candidates;
  for (const Track& track : movie.tracks) {
    candidates.push_back({&track, continuityConfig(track)});
  }
  return candidates;
}

/// The tracks of all parts that continue `first`, which stay free for others when one is missing.
/// A track continues one track only: two alike in each part stay two, and nothing is doubled.
std::optional<Strand> strandFrom(const Candidate& first,
                                 std::vector<std::vector<Candidate>>& laterParts) {
  Strand strand{{first.track}};
  std::vector<Candidate*> matches;
  for (std::vector<Candidate>& part : laterParts) {
    const auto match = std::find_if(part.begin(), part.end(), [&](const Candidate& candidate) {
      return candidate.continues(first);
    });
    if (match == part.end()) {
      return std::nullopt;
    }
    matches.push_back(&*match);
    strand.pieces.push_back(match->track);
  }
  for (Candidate* match : matches) match->taken = true;
  return strand;
}

std::vector<Strand> chooseStrands(std::span<const Part> parts, Plan& plan) {
  std::vector<std::vector<Candidate>> laterParts;
  for (const Part& part : parts.subspan(1)) laterParts.push_back(candidatesOf(part.movie));

  std::vector<Strand> strands;
  const auto hasKind = [&](Track::Kind kind) {
    return std::any_of(strands.begin(), strands.end(),
                       [&](const Strand& strand) { return strand.first().kind == kind; });
  };
  for (const Candidate& candidate : candidatesOf(parts.front().movie)) {
    const bool extra = candidate.track->kind == Track::Kind::other;
    if (!extra && hasKind(candidate.track->kind)) {
      continue;
    }
    auto strand = strandFrom(candidate, laterParts);
    if (extra) ++(strand ? plan.kept : plan.dropped);
    if (strand) strands.push_back(std::move(*strand));
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
// the first sample it becomes a start delay. Returns that delay in ticks.
std::uint64_t giveTimeOfEmptyPieces(const Strand& strand, std::vector<std::uint64_t>& lengths) {
  std::uint64_t waiting = 0;
  for (std::size_t part = lengths.size(); part-- > 0;) {
    lengths[part] = saturatingAdd(lengths[part], waiting);
    waiting = strand.pieces[part]->samples.empty() ? std::exchange(lengths[part], 0) : 0;
  }
  return waiting;
}

SampleList concatenated(const Strand& strand, std::span<const std::uint64_t> lengths,
                        std::span<const ByteRange> ranges) {
  std::size_t runs = 0;
  for (const Track* piece : strand.pieces) runs += piece->samples.runs().size();
  SampleList joined;
  joined.reserveRuns(runs);
  std::uint64_t start = 0;
  for (std::size_t part = 0; part < ranges.size(); ++part) {
    appendLasting(joined, strand.pieces[part]->samples, start - ranges[part].lower, lengths[part]);
    start += ranges[part].length();
  }
  return joined;
}

Track joinedTrack(const Strand& strand, std::vector<std::uint64_t> lengths, const Plan& plan) {
  Track track = strand.first();
  const std::uint64_t wait = giveTimeOfEmptyPieces(strand, lengths);
  track.samples = concatenated(strand, lengths, plan.ranges);
  if (!track.samples.empty()) {
    track.startDelay =
        saturatingAdd(track.startDelay, rescale(wait, plan.movie.timescale, track.timescale));
  }
  return track;
}

}  // namespace

Plan plan(std::span<const Part> parts) {
  Plan joined;
  if (parts.empty()) {
    return joined;
  }
  const std::vector<Strand> strands = chooseStrands(parts, joined);
  joined.ranges = rangesOf(parts.size(), strands);
  joined.movie = parts.front().movie;
  joined.movie.tracks.clear();

  const std::vector<std::vector<std::uint64_t>> lengths = pieceLengths(parts, strands);
  std::vector<std::uint32_t> carried;
  for (std::size_t i = 0; i < strands.size(); ++i) {
    joined.movie.tracks.push_back(joinedTrack(strands[i], lengths[i], joined));
    carried.push_back(joined.movie.tracks.back().trackID);
  }
  for (Track& track : joined.movie.tracks) keepReferencesTo(carried, track);
  return joined;
}

}  // namespace tallowmark::ClipJoin
