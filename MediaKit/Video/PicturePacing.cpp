// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/PicturePacing.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "MediaKit/Video/SoundPacing.h"

namespace tallowmark::VideoRepair {

namespace {

// Longer than this between two pictures is no pause of a camera.
constexpr std::uint32_t longestPause = 60;

std::vector<double> shownTimes(const Track& video) {
  std::vector<double> times;
  std::int64_t ticks = 0;
  for (const Sample& sample : video.samples) {
    times.push_back(static_cast<double>(ticks + sample.compositionOffset));
    ticks += sample.duration;
  }
  std::sort(times.begin(), times.end());
  return times;
}

/// A range that the time of a picture must lie in.
struct Band {
  std::uint64_t frame = 0;
  double earliest = 0;
  double latest = 0;
};

/// Finds how much faster or slower pictures must be shown to stay within bands, with as few changes
/// as can be.
class Spreading {
 public:
  Spreading(std::vector<double> starts, const std::vector<Band>& bands)
      : starts_(std::move(starts)), bands_(bands) {}

  /// The factor of each picture's duration.
  std::vector<double> factors() {
    for (const Band& band : bands_) {
      if (!narrows(band)) {
        close(last_);
        if (!narrows(band)) {
          aimAt(band);
        }
      }
      last_ = band.frame;
    }
    close(starts_.size() - 1);
    return std::move(factors_);
  }

 private:
  static constexpr double slowest = 1000;
  static constexpr double fastest = 0.1;

  // Takes a band into account; false when no factor of this stretch can.
  bool narrows(const Band& band) {
    const double length = starts_[band.frame] - starts_[from_];
    if (length <= 0) {
      return true;
    }
    const double least = std::max(least_, (band.earliest - time_) / length);
    const double most = std::min(most_, (band.latest - time_) / length);
    if (least > most) {
      return false;
    }
    least_ = least;
    most_ = most;
    return true;
  }

  // The nearest that a stretch can come to a band out of its reach.
  void aimAt(const Band& band) {
    const double length = starts_[band.frame] - starts_[from_];
    const double middle = (band.earliest + band.latest) / 2;
    least_ = std::clamp((middle - time_) / length, fastest, slowest);
    most_ = least_;
  }

  void close(std::uint64_t to) {
    const double factor = std::clamp(std::clamp(1.0, least_, most_), fastest, slowest);
    factors_.resize(static_cast<std::size_t>(to), factor);
    time_ += factor * (starts_[to] - starts_[from_]);
    from_ = to;
    least_ = fastest;
    most_ = slowest;
  }

  std::vector<double> starts_;
  const std::vector<Band>& bands_;
  std::vector<double> factors_;
  std::uint64_t from_ = 0;
  std::uint64_t last_ = 0;
  double time_ = 0;
  double least_ = fastest;
  double most_ = slowest;
};

std::vector<double> startsOf(const SampleList& pictures, std::uint32_t timescale) {
  std::vector<double> starts{0};
  for (const Sample& picture : pictures) {
    starts.push_back(starts.back() + static_cast<double>(picture.duration) / timescale);
  }
  return starts;
}

}  // namespace

CountsTell whatCountsTell(const Track& video, std::span<const std::uint32_t> intervals) {
  const std::vector<double> times = shownTimes(video);
  const double typical = video.typicalDuration();
  std::size_t skips = 0;
  std::size_t fitting = 0;
  for (std::size_t i = 0; i + 1 < std::min(times.size(), intervals.size()); ++i) {
    if (intervals[i] > 1) {
      ++skips;
      const double length = (times[i + 1] - times[i]) / typical;
      fitting += std::abs(length - intervals[i]) < 0.3 * intervals[i] ? 1U : 0U;
    }
  }
  if (skips == 0) {
    return CountsTell::unknown;
  }
  return fitting * 10 >= skips * 9 ? CountsTell::time : CountsTell::nothing;
}

bool hasVariableRate(const Track& video) {
  const double typical = video.typicalDuration();
  std::uint64_t others = 0;
  for (const SampleRun& run : video.samples.runs()) {
    others += std::abs(run.first.duration - typical) > typical / 5 ? run.count : 0;
  }
  // The last picture of a recording often lasts otherwise.
  return others > 1 && others * 100 > video.samples.size();
}

std::vector<SoundAnchor> soundAnchors(const EvidencedFindings& found, double soundTick) {
  std::vector<SoundAnchor> anchors;
  for (const SoundGap& gap : found.blocks.gaps) {
    if (gap.isUntold) {
      break;
    }
    if (gap.frame < found.video.size()) {
      anchors.push_back({gap.frame, static_cast<double>(gap.blocksBehind) * soundTick});
    }
  }
  std::uint64_t frame = 0;
  auto picture = found.video.begin();
  for (const SampleRun& run : found.audio.runs()) {
    for (; picture != found.video.end() && (*picture).offset < run.end(); ++picture) ++frame;
    if (picture == found.video.end()) {
      break;
    }
    const double seconds = static_cast<double>(run.start + run.count) * soundTick;
    if (!anchors.empty() && anchors.back().frame == frame) anchors.pop_back();
    anchors.push_back({frame, seconds});
  }
  return anchors;
}

bool paceByCounts(SampleList& pictures, std::uint32_t timescale,
                  std::span<const std::uint32_t> intervals, CountsTell tell,
                  const SoundPace* sound) {
  const std::uint64_t all = std::accumulate(intervals.begin(), intervals.end(), std::uint64_t{0});
  const bool isPlausible = std::all_of(intervals.begin(), intervals.end(),
                                       [](std::uint32_t count) { return count <= longestPause; });
  if (intervals.size() != pictures.size() || all == pictures.size() || !isPlausible ||
      tell == CountsTell::nothing) {
    return false;
  }
  if (tell == CountsTell::unknown) {
    const double frame = static_cast<double>(pictures.typicalDuration()) / timescale;
    const double plain = static_cast<double>(pictures.size()) * frame;
    const double counted = static_cast<double>(all) * frame;
    if (sound == nullptr || std::abs(sound->seconds - counted) + (counted - plain) / 2 >
                                std::abs(sound->seconds - plain)) {
      return false;
    }
  }
  SampleList paced;
  std::size_t place = 0;
  for (Sample picture : pictures) {
    picture.duration = ticks(static_cast<double>(picture.duration) * intervals[place++], 1);
    paced.append(picture);
  }
  pictures = std::move(paced);
  return true;
}

namespace {

// Bands that the sound ahead of pictures puts on these, and by how many seconds the worst is
// missed.
std::pair<std::vector<Band>, double> bandsOf(const SoundPace& sound, double frame,
                                             const std::vector<double>& starts) {
  std::vector<Band> bands;
  double worst = 0;
  for (const SoundAnchor& anchor : sound.anchors) {
    const Band band{anchor.frame, anchor.seconds - sound.lead.mostlyMost - frame,
                    anchor.seconds - sound.lead.mostlyLeast + frame};
    const double start = starts[anchor.frame];
    worst = std::max({worst, band.earliest - start, start - band.latest});
    bands.push_back(band);
  }
  return {std::move(bands), worst};
}

// A camera of constant rate that drops pictures shows others at their time. Where all of them would
// be shown slower it is the sound that differs, unless by little.
bool isBelievable(const std::vector<double>& factors, double stretch) {
  constexpr double fewest = 0.2;
  constexpr double little = 1.04;
  const auto unchanged = std::count_if(factors.begin(), factors.end(), [](double factor) {
    return std::abs(factor - 1) < little - 1;
  });
  return static_cast<double>(unchanged) >= fewest * static_cast<double>(factors.size()) ||
         stretch <= little;
}

}  // namespace

void paceBySound(SampleList& pictures, std::uint32_t timescale, const SoundPace& sound,
                 std::size_t delay) {
  constexpr double apartAtMost = 0.1;
  const std::uint32_t typical = pictures.typicalDuration();
  const double frame = static_cast<double>(typical) / timescale;
  std::vector<double> starts = startsOf(pictures, timescale);
  const auto [bands, worst] = bandsOf(sound, frame, starts);
  if (worst <= (sound.variableRate ? frame : apartAtMost)) {
    return;
  }
  const double length = starts.back() * timescale;
  const std::vector<double> factors = Spreading(std::move(starts), bands).factors();
  std::vector<std::uint32_t> durations;
  double time = 0;
  std::uint64_t done = 0;
  for (const Sample& picture : pictures) {
    // What rounding leaves goes to the next.
    time += picture.duration * factors[durations.size()];
    durations.push_back(ticks(time - static_cast<double>(done), 1));
    done += durations.back();
  }
  if (!sound.variableRate && !isBelievable(factors, time / length)) {
    return;
  }
  SampleList paced;
  std::size_t place = delay;
  for (Sample picture : pictures) {
    picture.duration = place < durations.size() ? durations[place] : typical;
    ++place;
    paced.append(picture);
  }
  pictures = std::move(paced);
}

std::size_t decodingDelay(const Track& video) {
  constexpr std::uint64_t enough = 64;
  constexpr double most = 16;
  Track start = video;
  start.samples = video.samples.slice(0, std::min(video.samples.size(), enough));
  const double typical = video.typicalDuration();
  if (start.samples.empty() || typical == 0) {
    return 0;
  }
  const double places = std::round(shownTimes(start).front() / typical);
  return static_cast<std::size_t>(std::clamp(places, 0.0, most));
}

}  // namespace tallowmark::VideoRepair
