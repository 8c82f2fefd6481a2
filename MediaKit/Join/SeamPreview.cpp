// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cmath>
#include <utility>

#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Join/ClipJoin.h"
#include "MediaKit/Join/Compatibility.h"
#include "MediaKit/Join/JoinPlan.h"
#include "MediaKit/Join/JoinWriting.h"
#include "MediaKit/Join/SeamTiming.h"

namespace tallowmark::ClipJoin {

namespace {

/// A sample by its number, and the ticks before it.
struct Position {
  std::uint64_t index = 0;
  std::uint64_t ticks = 0;
};

std::uint64_t wholeTicks(double ticks) {
  constexpr double most = 4503599627370496.0;  // 2^52
  return std::isfinite(ticks) ? static_cast<std::uint64_t>(std::clamp(ticks, 0.0, most)) : 0;
}

// The last key frame at or before `latest`; the first sample when there is none.
Position lastKeyFrame(const SampleList& samples, std::uint64_t latest) {
  Position chosen;
  std::uint64_t ticks = 0;
  for (const SampleRun& run : samples.runs()) {
    if (ticks > latest) {
      break;
    }
    if (run.first.isSync) {
      const std::uint64_t each = run.first.duration;
      const std::uint64_t last =
          each == 0 ? run.count - 1 : std::min(run.count - 1, (latest - ticks) / each);
      chosen = {run.start + last, saturatingAdd(ticks, last * each)};
    }
    ticks = saturatingAdd(ticks, run.duration());
  }
  return chosen;
}

// The first sample that starts at or after `earliest`; one past the last when there is none.
Position firstStarting(const SampleList& samples, std::uint64_t earliest) {
  std::uint64_t ticks = 0;
  for (const SampleRun& run : samples.runs()) {
    const std::uint64_t each = run.first.duration;
    const std::uint64_t wanted = earliest > ticks ? earliest - ticks : 0;
    if (wanted == 0) {
      return {run.start, ticks};
    }
    const std::uint64_t before =
        each == 0 ? run.count : wanted / each + (wanted % each != 0 ? 1 : 0);
    if (before < run.count) {
      return {run.start + before, saturatingAdd(ticks, before * each)};
    }
    ticks = saturatingAdd(ticks, run.duration());
  }
  return {samples.size(), ticks};
}

double secondsIn(std::uint64_t ticks, std::uint32_t timescale) {
  return timescale == 0 ? 0 : static_cast<double>(ticks) / timescale;
}

// When the media of a track starts to be presented, counted from sample time 0, is given by the
// edit list: the delay ahead and the media time that is skipped.
double presentedAt(std::uint64_t ticks, const Track& track, const Movie& movie) {
  const double skipped =
      track.timescale == 0 ? 0 : static_cast<double>(track.mediaStart) / track.timescale;
  return secondsIn(track.startDelay, movie.timescale) + secondsIn(ticks, track.timescale) - skipped;
}

// The sample time of a track that is presented at `seconds`, rounded up.
std::uint64_t ticksPresentedAt(double seconds, const Track& track, const Movie& movie) {
  const double sinceStart = seconds - presentedAt(0, track, movie);
  // A tick is never cut in two by the last bit of a division.
  return wholeTicks(std::ceil(sinceStart * track.timescale - 1e-6));
}

std::size_t videoIndex(const Movie& movie) {
  return static_cast<std::size_t>(movie.videoTrack() - movie.tracks.data());
}

// The end of a part, from a key frame at least `before` seconds ahead of it. The other tracks start
// with their first sample not ahead of that frame, delayed by what is missing between.
Part tailOf(const Part& part, double before) {
  Part tail = part;
  Movie& movie = tail.movie;
  const std::size_t video = videoIndex(movie);
  const Track& whole = part.movie.tracks[video];
  const std::uint64_t total = whole.duration();
  const std::uint64_t back = wholeTicks(std::floor(before * whole.timescale));
  const Position key = back > total ? Position{} : lastKeyFrame(whole.samples, total - back);
  if (key.index == 0) {
    return tail;
  }
  movie.timescale = std::max(movie.timescale, whole.timescale);
  const double start =
      secondsIn(whole.startDelay, part.movie.timescale) + secondsIn(key.ticks, whole.timescale);
  for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
    const Track& uncut = part.movie.tracks[i];
    Track& track = movie.tracks[i];
    Position first = key;
    track.startDelay = 0;
    if (i != video) {
      first = firstStarting(uncut.samples, ticksPresentedAt(start, uncut, part.movie));
      const double late = presentedAt(first.ticks, uncut, part.movie) - start;
      track.mediaStart = 0;
      track.startDelay = wholeTicks(std::round(late * movie.timescale));
    }
    track.samples = uncut.samples.slice(first.index, uncut.samples.size());
  }
  return tail;
}

// Telemetry and timecode that reach past the cut end with it; sound and pictures are whole samples.
SampleList cutAt(const Track& track, std::uint64_t end) {
  const Position behind = firstStarting(track.samples, end);
  const SampleList taken = track.samples.slice(0, behind.index);
  const bool shorter = track.kind == Track::Kind::other && behind.ticks > end &&
                       tailThatGives(taken, behind.ticks - end) > 0;
  SampleList cut;
  appendLasting(cut, taken, 0, shorter ? end : behind.ticks);
  return cut;
}

// The first `after` seconds of a part: whole frames of picture, and of the other tracks what starts
// before the last of them ends.
Part headOf(const Part& part, double after) {
  Part head = part;
  const std::size_t video = videoIndex(head.movie);
  const Track& whole = part.movie.tracks[video];
  if (whole.samples.empty() || !whole.samples.front().isSync) {
    throw MediaError::malformed("the second part doesn't start on a keyframe");
  }
  const Position behind =
      firstStarting(whole.samples, wholeTicks(std::ceil(after * whole.timescale)));
  const double end =
      secondsIn(whole.startDelay, part.movie.timescale) + secondsIn(behind.ticks, whole.timescale);
  for (std::size_t i = 0; i < head.movie.tracks.size(); ++i) {
    const Track& track = part.movie.tracks[i];
    head.movie.tracks[i].samples = i == video
                                       ? whole.samples.slice(0, behind.index)
                                       : cutAt(track, ticksPresentedAt(end, track, part.movie));
  }
  return head;
}

}  // namespace

void writeSeam(std::span<const Part> parts, double before, double after, FileSink& destination,
               const StopToken& stop) {
  if (const auto message = incompatibility(parts)) {
    throw MediaError::unsupported(*message);
  }
  const std::vector<Part> seam = [&] {
    std::vector<Part> two;
    two.push_back(tailOf(parts[0], before));
    two.push_back(headOf(parts[1], after));
    return two;
  }();
  writeJoined(seam, plan(seam), destination, {}, stop);
}

}  // namespace tallowmark::ClipJoin
