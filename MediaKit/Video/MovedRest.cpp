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
      const std::uint64_t bytes = position - run.first.offset + run.first.size - 1;
      return run.start + std::min(run.count, bytes / run.first.size);
    }
  }
  return samples.size();
}

// Sound that was lost ahead of the rest has its time in the silence that the rebuild has there.
void fallSilentUntil(std::uint64_t time, const SampleList& ahead, std::uint64_t mediaEnd,
                     SampleList& samples) {
  for (const SampleRun& run : ahead.runs()) {
    const std::uint64_t left = time - std::min(time, samples.duration());
    if (run.first.offset >= mediaEnd && run.first.duration > 0) {
      samples.append(run.first, std::min(run.count, left / run.first.duration));
    }
  }
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
      const SampleList ahead = samples.slice(0, first);
      if (track.kind == Track::Kind::video) {
        // Pictures that were lost ahead of the rest have their time in the one before.
        const std::uint64_t due = ahead.duration();
        track.samples.lengthenLast(due - std::min(due, track.samples.duration()));
      } else {
        fallSilentUntil(ahead.duration(), ahead, mediaEnd, track.samples);
      }
      track.samples.append(samples.slice(first, samples.size()));
    }
  }
  return true;
}

}  // namespace tallowmark::VideoRepair
