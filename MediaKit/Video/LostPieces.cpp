// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/LostPieces.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <vector>

#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Video/DisplayTimes.h"

namespace tallowmark::VideoRepair {

namespace {

// A day, in seconds: of numbers that are made up.
constexpr double longestDelay = 86400;

double secondsOf(std::uint64_t ticks, const Track& track) {
  return static_cast<double>(ticks) / std::max<std::uint32_t>(track.timescale, 1);
}

// The first run that starts behind a position; `samples` lie in file order.
SampleRuns::Iterator firstBehind(std::uint64_t offset, const SampleRuns& runs) {
  return std::upper_bound(
      runs.begin(), runs.end(), offset,
      [](std::uint64_t place, const SampleRun& run) { return place < run.first.offset; });
}

// The last run that starts by a position; nothing for none.
std::optional<SampleRun> lastBy(std::uint64_t offset, const SampleRuns& runs) {
  auto behind = firstBehind(offset, runs);
  if (behind == runs.begin()) return std::nullopt;
  return *--behind;
}

bool holds(const Sample& sample, const SampleRuns& runs) {
  const auto run = lastBy(sample.offset, runs);
  return run && sample.size > 0 && run->first.size == sample.size && sample.offset < run->end() &&
         (sample.offset - run->first.offset) % sample.size == 0;
}

bool overlaps(const Sample& sample, const SampleRuns& runs) {
  const auto run = lastBy(sample.offset + std::max(sample.size, 1U) - 1, runs);
  return run && run->end() > sample.offset;
}

}  // namespace

const Track* trackOf(const Movie& movie, std::uint32_t trackID) {
  const auto found = std::find_if(movie.tracks.begin(), movie.tracks.end(),
                                  [&](const Track& track) { return track.trackID == trackID; });
  return found == movie.tracks.end() ? nullptr : &*found;
}

bool isFoundAgain(const SampleList& known, const SampleList& rebuilt, double enough) {
  std::uint64_t found = 0;
  const SampleRuns runs = rebuilt.runs();
  for (const SampleRun& run : known.runs()) {
    found += holds(run.first, runs) ? 1U : 0U;
  }
  return !known.empty() &&
         static_cast<double>(found) >= enough * static_cast<double>(known.runs().size());
}

namespace {

/// One track whose lost pieces are filled.
class FilledTrack {
 public:
  FilledTrack(Track& track, const SampleList& again, const Movie& rebuilt)
      : track_(track),
        rebuilt_(again),
        all_(rebuilt),
        usual_(track.samples.typicalDuration()),
        end_(track.samples.size()) {
    if (track.kind != Track::Kind::video) return;
    delay_ = DisplayTimes::of(track.samples).delay();
    std::uint64_t time = 0;
    for (const SampleRun& run : again.runs()) {
      decodedAt_.push_back(static_cast<std::int64_t>(time));
      time += run.duration();
    }
  }

  void fill(std::vector<LostPiece>& pieces);
  /// What was found behind all that is known, in seconds, and whether anything was.
  double tail() const { return secondsOf(waiting_.duration(), track_); }
  bool hasTail() const { return !waiting_.empty(); }
  /// Ends the track with it, `late` seconds behind what is known: that is behind `piece`.
  void end(double late, LostPiece& piece);
  std::uint64_t bytes() const { return bytes_; }

 private:
  std::uint64_t endOfSound(std::uint64_t end) const;
  void gather(std::uint64_t from, std::uint64_t to);
  std::uint64_t cutSound(const LostPiece& piece, LostPiece::Resumption* place);
  std::uint64_t timeFor(const std::optional<std::uint64_t>& ticks);
  void keep(std::uint64_t upTo, std::uint64_t longer, std::uint64_t shorter);
  void putIn();

  Track& track_;
  const SampleList& rebuilt_;
  const Movie& all_;
  std::uint32_t usual_;
  /// Behind the last sample that is believed.
  std::uint64_t end_;
  SampleList filled_;
  SampleList waiting_;
  /// Of those that wait in the rebuild, if they are pictures.
  DisplayTimes times_;
  bool isPaced_ = false;
  std::optional<std::int64_t> delay_;
  /// When the rebuild decodes the first of each run.
  std::vector<std::int64_t> decodedAt_;
  std::uint64_t kept_ = 0;
  std::uint64_t bytes_ = 0;
};

// The number of the first sample from which on, up to `end`, the rebuild finds none, but others
// over one of them: bytes are missing there, with the index of the piece behind.
std::uint64_t FilledTrack::endOfSound(std::uint64_t end) const {
  if (track_.kind != Track::Kind::audio) return end;
  constexpr std::uint64_t mostMissed = 2;
  std::uint64_t first = end;
  bool areOthers = false;
  const SampleRuns same = rebuilt_.runs();
  for (; first > kept_; --first) {
    const Sample sample = track_.samples[first - 1];
    if (holds(sample, same)) break;
    for (const Track& track : all_.tracks) {
      areOthers = areOthers || overlaps(sample, track.samples.runs());
    }
  }
  return areOthers || end - first > mostMissed ? first : end;
}

// Sound ahead of a piece that is none belongs to it: returns where the piece starts for the track.
std::uint64_t FilledTrack::cutSound(const LostPiece& piece, LostPiece::Resumption* place) {
  const std::uint64_t resumed = place == nullptr ? track_.samples.size() : place->sample;
  const std::uint64_t end = endOfSound(resumed);
  if (end == resumed) return piece.from;
  const std::uint64_t from = std::min(piece.from, track_.samples[end].offset);
  const std::uint64_t ticks = track_.samples.slice(end, resumed).duration();
  if (place == nullptr) {
    end_ = end;
    return from;
  }
  keep(end, ticks, 0);
  kept_ = resumed;
  place->ticks = ticks;
  return from;
}

// What the rebuild found in a piece.
void FilledTrack::gather(std::uint64_t from, std::uint64_t to) {
  const SampleRuns runs = rebuilt_.runs();
  const auto end = firstBehind(to, runs);
  auto run = from == 0 ? runs.begin() : firstBehind(from - 1, runs);
  for (; run < end; ++run) {
    Sample first = run->first;
    first.duration = usual_;
    if (first.size == 0) continue;
    const std::uint64_t count = run->countEndingBy(to);
    waiting_.append(first, count);
    isPaced_ = isPaced_ || run->first.duration + 1 < usual_ || run->first.duration > usual_ + 1;
    auto decoded = delay_ ? decodedAt_[static_cast<std::size_t>(run - runs.begin())] : 0;
    for (std::uint64_t i = 0; delay_ && i < count; ++i) {
      times_.add(decoded, first.compositionOffset);
      decoded += run->first.duration;
    }
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
  if (each == 0) times_.clear();
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
  if (delay_ && isPaced_) {
    filled_.append(times_.inOrder(waiting_, *delay_));
  } else {
    filled_.append(delay_ ? shownLater(waiting_, *delay_ - times_.delay()) : waiting_);
  }
  waiting_.clear();
  times_.clear();
  isPaced_ = false;
}

// Damage lies where the index of a piece did, ahead of what it describes: what was found ends where
// the next piece starts, and the sample ahead of the damage keeps what time is left.
void FilledTrack::fill(std::vector<LostPiece>& pieces) {
  for (LostPiece& piece : pieces) {
    auto* place = piece.resumptionOf(track_.trackID);
    const bool isNext = place != nullptr || &piece == &pieces.back();
    gather(isNext ? cutSound(piece, place) : piece.from, piece.to);
    if (place != nullptr) {
      const std::uint64_t time = timeFor(place->ticks);
      keep(place->sample, 0, place->ticks ? time : 0);
      place->sample = filled_.size();
      if (place->ticks) *place->ticks -= time;
      putIn();
    }
  }
}

void FilledTrack::end(double late, LostPiece& piece) {
  const double ticks = std::round(std::min(late, longestDelay) * track_.timescale);
  keep(end_, hasTail() ? static_cast<std::uint64_t>(ticks) : 0, 0);
  if (hasTail() && ticks > 0) {
    piece.resumptions.push_back(
        {track_.trackID, filled_.size(), static_cast<std::uint64_t>(ticks)});
  }
  putIn();
  track_.samples = std::move(filled_);
}

}  // namespace

std::uint64_t fillLostPieces(Movie& movie, Movie rebuilt, std::uint64_t mediaEnd) {
  // Silence that the rebuild made lies out of the file's order.
  for (Track& track : rebuilt.tracks) track.samples = track.samples.endingBy(mediaEnd);
  const Track* video = movie.videoTrack();
  const Track* found = video == nullptr ? nullptr : trackOf(rebuilt, video->trackID);
  if (found == nullptr || !isFoundAgain(video->samples, found->samples)) return 0;
  // Some of what is known of sound may stand elsewhere.
  constexpr double enoughSound = 0.75;
  std::vector<FilledTrack> tracks;
  for (Track& track : movie.tracks) {
    const Track* again =
        track.kind == Track::Kind::other ? nullptr : trackOf(rebuilt, track.trackID);
    const double enough = track.kind == Track::Kind::audio ? enoughSound : mostOfIt;
    if (again != nullptr && isFoundAgain(track.samples, again->samples, enough)) {
      tracks.emplace_back(track, again->samples, rebuilt).fill(movie.lostPieces);
    }
  }
  // Sound does not end with the last picture to the block.
  constexpr double leastLate = 0.1;
  double longest = 0;
  for (const FilledTrack& track : tracks) longest = std::max(longest, track.tail());
  std::uint64_t bytes = 0;
  for (FilledTrack& track : tracks) {
    const double late = longest - track.tail();
    track.end(late > leastLate ? late : 0, movie.lostPieces.back());
    bytes += track.bytes();
  }
  return bytes;
}

namespace {

// Some players show the first picture where an edit list begins, if not with it.
void delay(Track& track, double seconds, const Movie& movie) {
  if (track.mediaStart == 0 && track.timescale > 0) {
    track.mediaStart = std::max<std::int64_t>(DisplayTimes::of(track.samples).first(), 0);
    seconds += static_cast<double>(track.mediaStart) / track.timescale;
  }
  track.startDelay +=
      static_cast<std::uint64_t>(std::llround(std::min(seconds, longestDelay) * movie.timescale));
}

}  // namespace

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
  for (const Track& track : movie.tracks) {
    if (track.kind != Track::Kind::other) least = std::min(least, lateness(track));
  }
  for (Track& track : movie.tracks) {
    const double later = lateness(track) - least;
    if (later > leastDelay) delay(track, later, movie);
  }
}

}  // namespace tallowmark::VideoRepair
