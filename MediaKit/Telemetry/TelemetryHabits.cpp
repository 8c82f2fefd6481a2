// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Telemetry/TelemetryHabits.h"

#include <algorithm>
#include <vector>

#include "MediaKit/Container/SaturatingMath.h"
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

/// Adds up the time of the pictures that are stored ahead of one position after another.
class PicturesAhead {
 public:
  explicit PicturesAhead(const Track& video)
      : runs_(video.samples.runs()), run_(runs_.begin()), timescale_(video.timescale) {}

  /// Seconds; never less than before.
  double secondsAt(std::uint64_t offset) {
    while (run_ != runs_.end()) {
      const SampleRun run = *run_;
      const std::uint64_t ahead = std::max(counted_, countStartingBefore(offset, run));
      ticks_ = saturatingAdd(ticks_, saturatingMultiply(ahead - counted_, run.first.duration));
      counted_ = ahead;
      if (ahead < run.count) {
        break;
      }
      ++run_;
      counted_ = 0;
    }
    return static_cast<double>(ticks_) / timescale_;
  }

 private:
  static std::uint64_t countStartingBefore(std::uint64_t offset, const SampleRun& run) {
    if (run.first.offset >= offset) {
      return 0;
    }
    const std::uint64_t size = run.first.size;
    return size == 0 ? run.count : std::min(run.count, (offset - run.first.offset - 1) / size + 1);
  }

  SampleRuns runs_;
  SampleRuns::Iterator run_;
  std::uint32_t timescale_;
  std::uint64_t counted_ = 0;
  std::uint64_t ticks_ = 0;
};

// How far each sample is stored behind the picture of its time: the middle one counts.
void learnPlaces(const Track& telemetry, const Track& video, TelemetryHabits& habits) {
  std::vector<double> lags;
  PicturesAhead pictures(video);
  std::uint64_t time = 0;
  double last = 0;
  for (const Sample& sample :
       telemetry.samples.slice(0, std::min(telemetry.samples.size(), samplesToTry))) {
    const double place = pictures.secondsAt(sample.offset);
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
