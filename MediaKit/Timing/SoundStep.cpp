// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/SoundStep.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::VideoRepair {

namespace {

// Nobody starts a recording hours before its pictures: an edit list that says so is damaged.
constexpr double latestStart = 600;

double firstShown(const Track& video) {
  std::int64_t first = video.samples.empty() ? 0 : std::numeric_limits<std::int64_t>::max();
  std::int64_t decoded = 0;
  for (const SampleRun& run : video.samples.runs()) {
    first = std::min(first, decoded + run.first.compositionOffset);
    decoded += static_cast<std::int64_t>(run.duration());
  }
  return static_cast<double>(first);
}

}  // namespace

double pictureStart(const Movie& movie) {
  const Track* video = movie.videoTrack();
  if (video == nullptr || video->timescale == 0 || movie.timescale == 0) {
    return 0;
  }
  const double shown = firstShown(*video) - static_cast<double>(video->mediaStart);
  const double start =
      shown / video->timescale + static_cast<double>(video->startDelay) / movie.timescale;
  return std::abs(start) <= latestStart ? start : 0;
}

double lateStart(const SoundPace& pace, double frame, std::uint64_t lossless) {
  constexpr std::size_t fewest = 8;
  constexpr double apartAtMost = 0.1;
  std::vector<double> leads;
  for (const SoundAnchor& anchor : pace.anchors) {
    if (anchor.frame < lossless) {
      leads.push_back(anchor.seconds - static_cast<double>(anchor.frame) * frame);
    }
  }
  if (leads.size() < fewest) {
    return 0;
  }
  const double first = leads.front();
  const SoundLead own = SoundLead::of(std::move(leads));
  const double late = own.usual - pace.lead.usual;
  const double atLeast = own.mostlyLeast - pace.lead.mostlyLeast;
  const double atMost = own.mostlyMost - pace.lead.mostlyMost;
  // The distance of pictures that run away from the sound swings more than the reference's.
  const bool isSteady = std::abs(atMost - atLeast) <= 2 * frame;
  const double startsApart =
      std::min(std::abs(first - pace.lead.first - late), std::abs(first - own.usual));
  const bool isSoFromStart = startsApart <= std::abs(late) / 2;
  const double sure = std::min({std::abs(late), std::abs(atLeast), std::abs(atMost)});
  return isSteady && isSoFromStart && sure > apartAtMost && std::abs(late) <= latestStart ? late
                                                                                          : 0;
}

namespace {

bool isSound(const Track& track) {
  return track.kind == Track::Kind::audio;
}

// Time at the movie's start in which nothing is heard.
std::uint64_t silentStart(const Movie& movie) {
  std::uint64_t silent = std::numeric_limits<std::uint64_t>::max();
  for (const Track& track : movie.tracks) {
    if (isSound(track)) silent = std::min(silent, track.startDelay);
  }
  return silent;
}

}  // namespace

void startPicturesAt(Movie& movie, double seconds) {
  Track& video = movie.tracks.front();
  if (video.timescale == 0 || movie.timescale == 0) {
    return;
  }
  const auto inMovie = [&](double time) {
    return static_cast<std::uint64_t>(std::llround(std::max(time, 0.0) * movie.timescale));
  };
  // Nor is anything shown in it.
  const std::uint64_t idle = std::min(silentStart(movie), inMovie(seconds));
  const double start = seconds - static_cast<double>(idle) / movie.timescale;
  // Composition offsets that are larger than they need be delay pictures, too.
  const auto ticks = std::clamp<std::int64_t>(std::llround(start * video.timescale), 0,
                                              std::max<std::int64_t>(video.mediaStart, 0));
  video.mediaStart -= ticks;
  const double byOffsets = static_cast<double>(ticks) / video.timescale;
  for (Track& track : movie.tracks) {
    if (isSound(track)) {
      track.startDelay = saturatingAdd(track.startDelay - idle, inMovie(-start));
    } else {
      track.startDelay =
          saturatingAdd(track.startDelay, inMovie(&track == &video ? start - byOffsets : start));
    }
  }
}

}  // namespace tallowmark::VideoRepair
