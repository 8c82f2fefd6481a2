// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/LostPieces.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <vector>

#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::VideoRepair {

namespace {

// A day, in seconds: of numbers that are made up.
constexpr double longestDelay = 86400;

LostPiece::Resumption* resumptionOf(std::uint32_t trackID, LostPiece& piece) {
  const auto found = std::find_if(piece.resumptions.begin(), piece.resumptions.end(),
                                  [&](const auto& place) { return place.trackID == trackID; });
  return found == piece.resumptions.end() ? nullptr : &*found;
}

double secondsOf(std::uint64_t ticks, const Track& track) {
  return static_cast<double>(ticks) / std::max<std::uint32_t>(track.timescale, 1);
}

// The first run that starts behind a position; `samples` lie in file order.
SampleRuns::Iterator firstBehind(std::uint64_t offset, const SampleRuns& runs) {
  return std::upper_bound(
      runs.begin(), runs.end(), offset,
      [](std::uint64_t place, const SampleRun& run) { return place < run.first.offset; });
}

}  // namespace

const Track* trackOf(const Movie& movie, std::uint32_t trackID) {
  const auto found = std::find_if(movie.tracks.begin(), movie.tracks.end(),
                                  [&](const Track& track) { return track.trackID == trackID; });
  return found == movie.tracks.end() ? nullptr : &*found;
}

bool isFoundAgain(const SampleList& known, const SampleList& rebuilt) {
  constexpr double enough = 0.95;
  std::uint64_t found = 0;
  const SampleRuns runs = rebuilt.runs();
  for (const SampleRun& run : known.runs()) {
    auto behind = firstBehind(run.first.offset, runs);
    if (behind == runs.begin() || run.first.size == 0) continue;
    const SampleRun same = *--behind;
    const bool isSame = same.first.size == run.first.size && run.first.offset < same.end() &&
                        (run.first.offset - same.first.offset) % run.first.size == 0;
    found += isSame ? 1U : 0U;
  }
  return !known.empty() &&
         static_cast<double>(found) >= enough * static_cast<double>(known.runs().size());
}

namespace {

/// One track whose lost pieces are filled.
class FilledTrack {
 public:
  FilledTrack(Track& track, const SampleList& rebuilt)
      : track_(track), rebuilt_(rebuilt), usual_(track.samples.typicalDuration()) {}

  void fill(std::vector<LostPiece>& pieces);
  /// What was found behind all that is known, in seconds, and whether anything was.
  double tail() const { return secondsOf(waiting_.duration(), track_); }
  bool hasTail() const { return !waiting_.empty(); }
  /// Ends the track with it, `late` seconds behind what is known.
  void end(double late);
  std::uint64_t bytes() const { return bytes_; }

 private:
  void gather(const LostPiece& piece);
  std::uint64_t timeFor(const std::optional<std::uint64_t>& ticks);
  void keep(std::uint64_t upTo, std::uint64_t longer, std::uint64_t shorter);
  void putIn();

  Track& track_;
  const SampleList& rebuilt_;
  std::uint32_t usual_;
  SampleList filled_;
  SampleList waiting_;
  std::uint64_t kept_ = 0;
  std::uint64_t bytes_ = 0;
};

// What the rebuild found in a piece.
void FilledTrack::gather(const LostPiece& piece) {
  const SampleRuns runs = rebuilt_.runs();
  const auto end = firstBehind(piece.to, runs);
  auto run = piece.from == 0 ? runs.begin() : firstBehind(piece.from - 1, runs);
  for (; run < end; ++run) {
    Sample first = run->first;
    first.duration = usual_;
    if (first.size > 0) waiting_.append(first, run->countEndingBy(piece.to));
  }
}

// Sets how long the samples that wait last, where there are `ticks` for them; returns their time.
// Where there is not one for each they are none of this track's.
std::uint64_t FilledTrack::timeFor(const std::optional<std::uint64_t>& ticks) {
  if (!ticks || waiting_.duration() <= *ticks) return waiting_.duration();
  const std::uint64_t each = *ticks / waiting_.size();
  SampleList fitting;
  for (const SampleRun& run : waiting_.runs()) {
    Sample first = run.first;
    first.duration = static_cast<std::uint32_t>(each);
    if (each > 0) fitting.append(first, run.count);
  }
  waiting_ = std::move(fitting);
  return waiting_.duration();
}

// Takes over what is known up to a sample, of which the last is to last so much longer and shorter.
void FilledTrack::keep(std::uint64_t upTo, std::uint64_t longer, std::uint64_t shorter) {
  const std::uint64_t end = std::clamp(upTo, kept_, track_.samples.size());
  filled_.append(track_.samples.slice(kept_, end));
  kept_ = end;
  if (filled_.empty() || longer == shorter) return;
  Sample last = filled_.back();
  filled_.removeLast();
  const std::uint64_t ticks = saturatingAdd(last.duration, longer);
  last.duration = static_cast<std::uint32_t>(std::min<std::uint64_t>(
      ticks - std::min(ticks, shorter), std::numeric_limits<std::uint32_t>::max()));
  filled_.append(last);
}

void FilledTrack::putIn() {
  for (const SampleRun& run : waiting_.runs()) bytes_ += run.end() - run.first.offset;
  filled_.append(waiting_);
  waiting_.clear();
}

// Damage lies where the index of a piece did, ahead of what it describes: what was found ends where
// the next piece starts, and the sample ahead of the damage keeps what time is left.
void FilledTrack::fill(std::vector<LostPiece>& pieces) {
  for (LostPiece& piece : pieces) {
    gather(piece);
    if (auto* place = resumptionOf(track_.trackID, piece)) {
      const std::uint64_t time = timeFor(place->ticks);
      keep(place->sample, 0, place->ticks ? time : 0);
      if (place->ticks) *place->ticks -= time;
      putIn();
    }
  }
}

void FilledTrack::end(double late) {
  const double ticks = std::round(std::min(late, longestDelay) * track_.timescale);
  keep(track_.samples.size(), hasTail() ? static_cast<std::uint64_t>(ticks) : 0, 0);
  putIn();
  track_.samples = std::move(filled_);
}

}  // namespace

std::uint64_t fillLostPieces(Movie& movie, const Movie& rebuilt) {
  const Track* video = movie.videoTrack();
  const Track* found = video == nullptr ? nullptr : trackOf(rebuilt, video->trackID);
  if (found == nullptr || !isFoundAgain(video->samples, found->samples)) return 0;
  std::vector<FilledTrack> tracks;
  for (Track& track : movie.tracks) {
    const Track* again =
        track.kind == Track::Kind::other ? nullptr : trackOf(rebuilt, track.trackID);
    if (again != nullptr && isFoundAgain(track.samples, again->samples)) {
      tracks.emplace_back(track, again->samples).fill(movie.lostPieces);
    }
  }
  // Sound does not end with the last picture to the block.
  constexpr double leastLate = 0.1;
  double longest = 0;
  for (const FilledTrack& track : tracks) longest = std::max(longest, track.tail());
  std::uint64_t bytes = 0;
  for (FilledTrack& track : tracks) {
    const double late = longest - track.tail();
    track.end(late > leastLate ? late : 0);
    bytes += track.bytes();
  }
  return bytes;
}

void delayLostStarts(Movie& movie) {
  // Nobody hears less, and an edit list for it moves pictures that are shown late in some players.
  constexpr double leastDelay = 0.05;
  std::map<std::uint32_t, std::uint64_t> late;
  for (const LostPiece& piece : movie.lostPieces) {
    for (const LostPiece::Resumption& place : piece.resumptions) {
      if (place.sample == 0) late.emplace(place.trackID, place.ticks.value_or(0));
    }
  }
  const auto lateness = [&](const Track& track) {
    const auto found = late.find(track.trackID);
    return found == late.end() ? 0 : secondsOf(found->second, track);
  };
  double least = late.empty() ? 0 : std::numeric_limits<double>::infinity();
  for (const Track& track : movie.tracks) least = std::min(least, lateness(track));
  for (Track& track : movie.tracks) {
    const double delay = lateness(track) - least;
    if (delay > leastDelay) {
      track.startDelay +=
          static_cast<std::uint64_t>(std::llround(std::min(delay, longestDelay) * movie.timescale));
    }
  }
}

}  // namespace tallowmark::VideoRepair
