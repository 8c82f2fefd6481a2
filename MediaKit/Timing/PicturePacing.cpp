// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/PicturePacing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>

#include "MediaKit/Timing/SoundPacing.h"

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
  Spreading(std::vector<double> starts, const std::vector<Band>& bands,
            std::span<const std::uint64_t> losses)
      : starts_(std::move(starts)), bands_(bands), losses_(losses) {}

  /// The factor of each picture's duration.
  std::vector<double> factors() {
    for (std::size_t i = 0; i < bands_.size(); ++i) {
      const Band& band = bands_[i];
      if (const auto loss = lossUpTo(band.frame)) {
        close(*loss);
        jumpTo(i);
      }
      if (!narrows(band)) {
        close(last_);
        if (!narrows(band)) {
          aimAt(band);
        }
      }
      last_ = band.frame;
    }
    // A few pictures that wait for their sound say nothing of those behind the last of it.
    constexpr double tellsAPace = 0.5;
    if (starts_[last_] - starts_[from_] < tellsAPace) close(last_);
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

  // The last loss since the place that the present stretch starts from, up to a picture.
  std::optional<std::uint64_t> lossUpTo(std::uint64_t frame) {
    std::optional<std::uint64_t> last;
    while (!losses_.empty() && losses_.front() <= frame) {
      if (losses_.front() > from_) last = losses_.front();
      losses_ = losses_.subspan(1);
    }
    return last;
  }

  // How much slower pictures are from a band on, as far as the bands up to the next loss tell.
  double paceBehind(std::size_t number) const {
    constexpr double enough = 1;
    const Band& band = bands_[number];
    double pace = 1;
    for (std::size_t i = number + 1; i < bands_.size(); ++i) {
      const double length = starts_[bands_[i].frame] - starts_[band.frame];
      if (!losses_.empty() && bands_[i].frame >= losses_.front()) break;
      if (length <= 0) continue;
      pace = std::clamp((bands_[i].earliest - band.earliest) / length, fastest, slowest);
      if (length > enough) break;
    }
    return pace;
  }

  // How long a loss lasted is not known: the picture before it takes what brings those behind it to
  // the band at their own pace.
  void jumpTo(std::size_t number) {
    const Band& band = bands_[number];
    const double length = starts_[band.frame] - starts_[from_];
    const double reached = time_ + paceBehind(number) * length;
    const double lacking = std::clamp(reached, band.earliest, band.latest) - reached;
    const double held = std::max(starts_[from_] - starts_[from_ - 1], 1e-6);
    const double factor = std::max(factors_.back() + lacking / held, fastest);
    time_ += (factor - factors_.back()) * held;
    factors_.back() = factor;
    last_ = from_;
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
  std::span<const std::uint64_t> losses_;
  std::vector<double> factors_;
  std::uint64_t from_ = 0;
  std::uint64_t last_ = 0;
  double time_ = 0;
  double least_ = fastest;
  double most_ = slowest;
};

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
  std::uint64_t sound = 0;
  auto picture = found.video.begin();
  for (const SampleRun& run : found.audio.runs()) {
    for (; picture != found.video.end() && (*picture).offset < run.end(); ++picture) ++frame;
    if (picture == found.video.end()) {
      break;
    }
    sound += run.duration();
    const double seconds = static_cast<double>(sound) * soundTick;
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

// That the sound ahead of pictures puts on these.
std::vector<Band> bandsOf(const SoundPace& sound, double frame) {
  std::vector<Band> bands;
  for (const SoundAnchor& anchor : sound.anchors) {
    bands.push_back({anchor.frame, anchor.seconds - sound.lead.mostlyMost - frame,
                     anchor.seconds - sound.lead.mostlyLeast + frame});
  }
  return bands;
}

// Whether sound comes with nearly every picture.
bool isDense(const SoundPace& sound, const std::vector<double>& starts) {
  constexpr std::size_t picturesPerAnchor = 3;
  return sound.anchors.size() * picturesPerAnchor >= starts.size();
}

// Whether pictures keep their distance to the sound. Where it comes in chunks, the reference's
// first and last ones may be further off than most; so may the clip's.
bool areInStep(const SoundPace& sound, double frame, const std::vector<double>& starts) {
  constexpr double apartAtMost = 0.1;
  constexpr std::size_t few = 5;
  const double apart = frame + (sound.variableRate ? frame : apartAtMost);
  std::size_t outside = 0;
  for (const SoundAnchor& anchor : sound.anchors) {
    const double lead = anchor.seconds - starts[anchor.frame];
    if (lead > sound.lead.most + apart || lead < sound.lead.least - apart) {
      return false;
    }
    const bool isUsual =
        lead <= sound.lead.mostlyMost + apart && lead >= sound.lead.mostlyLeast - apart;
    outside += isUsual ? 0U : 1U;
  }
  return outside * few <= (isDense(sound, starts) ? 0 : sound.anchors.size());
}

// Whether sound ends with pictures of their present durations, as in the reference, and comes late
// on the way by more than half of a chunk: no pictures were dropped that anyone would miss, but one
// chunk was stored behind more of them.
bool endTogether(const SoundPace& sound, double frame, const std::vector<double>& starts) {
  constexpr double apartAtMost = 0.1;
  if (!sound.endLead || isDense(sound, starts) || sound.anchors.size() < 2 ||
      std::abs(sound.seconds - starts.back() - *sound.endLead) > apartAtMost + frame) {
    return false;
  }
  const double chunk = (sound.anchors.back().seconds - sound.anchors.front().seconds) /
                       static_cast<double>(sound.anchors.size() - 1);
  return std::any_of(sound.anchors.begin(), sound.anchors.end(), [&](const SoundAnchor& anchor) {
    return anchor.seconds - starts[anchor.frame] < sound.lead.least - chunk / 2;
  });
}

// Sound that was taken for another sampling rate's: 44.1 kHz for 48, say.
bool isOfOtherSamplingRate(double stretch, std::uint32_t taken) {
  constexpr std::array<double, 6> rates{16000, 22050, 24000, 32000, 44100, 48000};
  constexpr double near = 0.012;
  return std::any_of(rates.begin(), rates.end(), [&](double rate) {
    return rate != taken && (taken == 0 || std::abs(stretch * taken / rate - 1) < near);
  });
}

// A camera of constant rate that drops pictures shows others at their time. Where all of them would
// be shown slower it can be the sound that differs, unless by little.
bool isBelievable(const std::vector<double>& factors, double stretch, std::uint32_t samplingRate) {
  constexpr double fewest = 0.2;
  constexpr double little = 1.04;
  const auto unchanged = std::count_if(factors.begin(), factors.end(), [](double factor) {
    return std::abs(factor - 1) < little - 1;
  });
  return static_cast<double>(unchanged) >= fewest * static_cast<double>(factors.size()) ||
         stretch <= little || !isOfOtherSamplingRate(stretch, samplingRate);
}

// `delay`: as for `paceBySound`.
void pauseFor(SampleList& pictures, const std::vector<std::uint32_t>& missing, std::size_t delay) {
  const std::uint32_t typical = pictures.typicalDuration();
  SampleList paced;
  std::size_t place = delay;
  for (Sample picture : pictures) {
    picture.duration += place < missing.size() ? missing[place] * typical : 0;
    ++place;
    paced.append(picture);
  }
  pictures = std::move(paced);
}

/// Places the pauses that a camera of constant rate leaves where it drops pictures. Sound that
/// comes with nearly every picture tells each of them.
class DroppedPictures {
 public:
  DroppedPictures(const SoundPace& sound, double frame, const std::vector<double>& starts)
      : sound_(sound), frame_(frame), starts_(starts) {}

  /// For each picture how many are missing behind it; nothing where that does not explain how far
  /// the sound is.
  std::optional<std::vector<std::uint32_t>> find() const;

 private:
  std::optional<std::vector<std::uint32_t>> placedAt(double late) const;
  bool areEven(const std::vector<std::uint32_t>& missing) const;

  const SoundPace& sound_;
  double frame_;
  const std::vector<double>& starts_;
};

// A picture waits for no longer than its sound asks for.
std::optional<std::vector<std::uint32_t>> DroppedPictures::placedAt(double late) const {
  constexpr std::size_t few = 20;
  const double slack = frame_ / 4;
  std::vector<std::uint32_t> missing(starts_.size() - 1, 0);
  double added = 0;
  std::size_t misses = 0;
  for (const SoundAnchor& anchor : sound_.anchors) {
    const double due = anchor.seconds - late;
    const double lacking = due - sound_.lead.mostlyMost - slack - starts_[anchor.frame] - added;
    if (lacking > 0 && anchor.frame > 0) {
      const double pictures = std::ceil(lacking / frame_);
      missing[anchor.frame - 1] += ticks(pictures, 1);
      added += pictures * frame_;
    }
    const double latest = due - sound_.lead.mostlyLeast + 2 * slack;
    misses += starts_[anchor.frame] + added > latest ? 1U : 0U;
  }
  return misses * few <= sound_.anchors.size() ? std::optional(std::move(missing)) : std::nullopt;
}

// Sound at another speed than it is taken for leaves as much between any two pictures.
bool DroppedPictures::areEven(const std::vector<std::uint32_t>& missing) const {
  constexpr double even = 1.5;
  constexpr double little = 0.04;
  const double all = std::accumulate(missing.begin(), missing.end(), 0.0);
  const double share = all / static_cast<double>(missing.size());
  double beside = 0;
  double least = 0;
  double most = 0;
  for (const std::uint32_t pictures : missing) {
    beside += pictures - share;
    least = std::min(least, beside);
    most = std::max(most, beside);
  }
  return share > little && most - least <= even;
}

std::optional<std::vector<std::uint32_t>> DroppedPictures::find() const {
  // Seconds that leave a picture no further from its time than anyone sees.
  constexpr double narrow = 0.06;
  if (sound_.lead.mostlyMost - sound_.lead.mostlyLeast > narrow || !isDense(sound_, starts_)) {
    return std::nullopt;
  }
  auto missing = placedAt(0);
  // Where its sound is not as far ahead as the reference's from the start on.
  const SoundAnchor& first = sound_.anchors.front();
  const double late = first.seconds - starts_[first.frame] - sound_.lead.usual;
  constexpr int steps = 8;
  for (int step = -steps; step <= steps && !missing; ++step) {
    missing = placedAt(late - step * frame_ / steps);
  }
  return missing && !areEven(*missing) ? missing : std::nullopt;
}

}  // namespace

void paceBySound(SampleList& pictures, std::uint32_t timescale, const SoundPace& sound,
                 std::span<const std::uint64_t> losses, std::size_t delay) {
  const std::uint32_t typical = pictures.typicalDuration();
  const double frame = static_cast<double>(typical) / timescale;
  std::vector<double> starts = startSeconds(pictures, timescale);
  if (areInStep(sound, frame, starts) || endTogether(sound, frame, starts)) {
    return;
  }
  const std::vector<Band> bands = bandsOf(sound, frame);
  if (const auto missing = DroppedPictures(sound, frame, starts).find()) {
    pauseFor(pictures, *missing, delay);
    return;
  }
  const double length = starts.back() * timescale;
  const std::vector<double> factors = Spreading(std::move(starts), bands, losses).factors();
  std::vector<std::uint32_t> durations;
  double time = 0;
  std::uint64_t done = 0;
  for (const Sample& picture : pictures) {
    // What rounding leaves goes to the next.
    time += picture.duration * factors[durations.size()];
    durations.push_back(ticks(time - static_cast<double>(done), 1));
    done += durations.back();
  }
  if (!sound.variableRate && !isBelievable(factors, time / length, sound.samplingRate)) {
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
  const double shown = shownTimes(start).front();
  const auto usual = static_cast<std::size_t>(std::clamp(std::round(shown / typical), 0.0, most));
  const double mean =
      static_cast<double>(start.duration()) / static_cast<double>(start.samples.size());
  if (mean > 2 * typical) {
    return usual;
  }
  // Fewer where pictures are missing among the first.
  std::size_t places = 0;
  double decoded = 0;
  for (const Sample& sample : start.samples) {
    if (places == usual || decoded + sample.duration / 2.0 > shown) break;
    decoded += sample.duration;
    ++places;
  }
  return places;
}

}  // namespace tallowmark::VideoRepair
