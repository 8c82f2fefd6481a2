// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/MovedRest.h"

#include <algorithm>

#include "MediaKit/Video/LostPieces.h"

namespace tallowmark::VideoRepair {

namespace {

// The number of the first sample that starts at or behind a position. Silence that was made lies at
// `mediaEnd`, wherever it is heard.
std::uint64_t firstFrom(std::uint64_t position, std::uint64_t mediaEnd, const SampleList& samples) {
  for (const SampleRun& run : samples.runs()) {
    if (run.first.offset >= mediaEnd) {
      continue;
    }
    if (run.first.offset >= position) {
      return run.start;
    }
    if (run.end() > position && run.first.size > 0) {
      const std::uint64_t ahead = position - run.first.offset + run.first.size - 1;
      return run.start + std::min(run.count, ahead / run.first.size);
    }
  }
  return samples.size();
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
      track.samples.append(samples.slice(firstFrom(from, mediaEnd, samples), samples.size()));
    }
  }
  return true;
}

}  // namespace tallowmark::VideoRepair
