// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/MovedRest.h"

#include <algorithm>
#include <limits>

#include "MediaKit/Video/LostPieces.h"

namespace tallowmark::VideoRepair {

namespace {

// The number of the first sample that starts at or behind a position, with the silence ahead of it,
// which lies at `mediaEnd` wherever it is heard.
std::uint64_t firstFrom(std::uint64_t position, std::uint64_t mediaEnd, const SampleList& samples) {
  std::uint64_t ahead = 0;
  for (const SampleRun& run : samples.runs()) {
    if (run.first.offset >= mediaEnd) {
      continue;
    }
    if (run.first.offset >= position) {
      return ahead;
    }
    if (run.end() > position && run.first.size > 0) {
      const std::uint64_t bytes = position - run.first.offset + run.first.size - 1;
      return run.start + std::min(run.count, bytes / run.first.size);
    }
    ahead = run.start + run.count;
  }
  return samples.size();
}

// Pictures that were lost ahead of the rest have their time in the one before.
void holdUntil(std::uint64_t time, SampleList& samples) {
  if (samples.empty() || samples.duration() >= time) {
    return;
  }
  Sample last = samples.back();
  const std::uint64_t longer = last.duration + (time - samples.duration());
  samples = samples.slice(0, samples.size() - 1);
  last.duration = static_cast<std::uint32_t>(
      std::min<std::uint64_t>(longer, std::numeric_limits<std::int32_t>::max()));
  samples.append(last);
}

}  // namespace

bool goOnWithMoved(Movie& movie, std::uint64_t from, const Movie& rebuilt, std::uint64_t mediaEnd) {
  const Track* video = movie.videoTrack();
  const Track* found = video == nullptr ? nullptr : trackOf(rebuilt, video->trackID);
  if (found == nullptr || !isFoundAgain(video->samples, found->samples) ||
      firstFrom(from, mediaEnd, found->samples) == found->samples.size()) {
    return false;
  }
  for (Track& track : movie.tracks) {
    const Track* again = trackOf(rebuilt, track.trackID);
    if (again != nullptr && again->timescale == track.timescale) {
      const SampleList& samples = again->samples;
      const std::uint64_t first = firstFrom(from, mediaEnd, samples);
      if (track.kind == Track::Kind::video) {
        holdUntil(samples.slice(0, first).duration(), track.samples);
      }
      track.samples.append(samples.slice(first, samples.size()));
    }
  }
  return true;
}

}  // namespace tallowmark::VideoRepair
