// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Telemetry/TelemetryHabits.h"

#include <algorithm>
#include <vector>

#include "MediaKit/Telemetry/TelemetrySearch.h"

namespace tallowmark {

namespace {

constexpr std::uint64_t samplesToTry = 200;

// How many trees a sample is made of; 0 when it is made of anything else.
std::size_t treesIn(const Sample& sample, TelemetrySearch& search) {
  const ByteRange range{sample.offset, sample.offset + sample.size};
  const auto trees = search.in(range, range.upper);
  std::uint64_t at = range.lower;
  for (const ByteRange& tree : trees) {
    if (tree.lower != at) {
      return 0;
    }
    at = tree.upper;
  }
  return at == range.upper ? trees.size() : 0;
}

// How far each sample is stored behind the picture of its time: the middle one counts.
void learnPlaces(const Track& telemetry, const Track& video, TelemetryHabits& habits) {
  std::vector<double> lags;
  auto picture = video.samples.begin();
  std::uint64_t pictures = 0;
  std::uint64_t time = 0;
  double last = 0;
  for (const Sample& sample :
       telemetry.samples.slice(0, std::min(telemetry.samples.size(), samplesToTry))) {
    for (; picture != video.samples.end() && (*picture).offset < sample.offset; ++picture) {
      pictures += (*picture).duration;
    }
    const double place = static_cast<double>(pictures) / video.timescale;
    habits.longestStep = std::max(habits.longestStep, place - last);
    last = place;
    lags.push_back(place - static_cast<double>(time) / telemetry.timescale);
    time += sample.duration;
  }
  const auto middle = lags.begin() + static_cast<std::ptrdiff_t>(lags.size() / 2);
  std::nth_element(lags.begin(), middle, lags.end());
  constexpr double most = 60;
  habits.lag = std::clamp(*middle, -most, most);
}

}  // namespace

std::optional<TelemetryHabits> TelemetryHabits::learn(const Movie& reference,
                                                      const ByteSource& source) {
  const Track* video = reference.videoTrack();
  const auto found = std::find_if(reference.tracks.begin(), reference.tracks.end(),
                                  [](const Track& candidate) { return candidate.codec == "gpmd"; });
  if (video == nullptr || video->timescale == 0 || found == reference.tracks.end() ||
      found->timescale == 0 || found->samples.empty()) {
    return std::nullopt;
  }
  TelemetryHabits habits{static_cast<std::size_t>(found - reference.tracks.begin())};
  TelemetrySearch search(source);
  std::vector<std::size_t> counts;
  for (const Sample& sample :
       found->samples.slice(0, std::min(found->samples.size(), samplesToTry))) {
    if (const std::size_t trees = treesIn(sample, search); trees > 0) {
      counts.push_back(trees);
    }
  }
  if (counts.empty()) {
    return std::nullopt;
  }
  const auto middle = counts.begin() + static_cast<std::ptrdiff_t>(counts.size() / 2);
  std::nth_element(counts.begin(), middle, counts.end());
  habits.treesPerSample = *middle;
  learnPlaces(*found, *video, habits);
  habits.endsWithPictures = found->samples.back().duration < found->typicalDuration();
  return habits;
}

}  // namespace tallowmark
