// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/SoundPacing.h"

#include <algorithm>
#include <cmath>

namespace tallowmark::VideoRepair {

namespace {

/// Seconds of sound stored before a position of the file.
class SoundBefore {
 public:
  SoundBefore(const SampleList& audio, std::uint32_t timescale)
      : audio_(audio), ticks_(std::max(1U, timescale)) {}

  std::uint64_t samples(std::uint64_t offset) const {
    const auto& runs = audio_.runs();
    const auto behind = std::partition_point(
        runs.begin(), runs.end(), [&](const SampleRun& run) { return run.first.offset < offset; });
    return behind == runs.begin() ? 0 : std::prev(behind)->start + std::prev(behind)->count;
  }
  double seconds(std::uint64_t offset) const {
    return static_cast<double>(samples(offset)) / ticks_;
  }

 private:
  const SampleList& audio_;
  double ticks_;
};

std::uint64_t firstKeyframe(const SampleList& video) {
  for (const SampleRun& run : video.runs()) {
    if (run.first.isSync) {
      return run.start;
    }
  }
  return 0;
}

SampleList withLongerSample(const SampleList& samples, std::uint64_t index, std::uint32_t extra) {
  SampleList changed = samples.slice(0, index);
  Sample longer = samples[index];
  longer.duration += extra;
  changed.append(longer);
  changed.append(samples.slice(index + 1, samples.size()));
  return changed;
}

}  // namespace

void keepInStep(EvidencedFindings& found, const SoundLayout& layout, std::uint32_t videoTimescale,
                std::uint32_t movieTimescale, Track& audio) {
  if (found.audio.empty() || videoTimescale == 0 || audio.timescale == 0) {
    return;
  }
  const std::uint64_t key = firstKeyframe(found.video);
  const bool lostBefore =
      std::any_of(found.losses.begin(), found.losses.end(), [&](auto n) { return n <= key; });
  const double frame = static_cast<double>(found.video[0].duration) / videoTimescale;
  const std::uint64_t keyOffset = found.video[key].offset;
  const double lead = SoundBefore(found.audio, audio.timescale).seconds(keyOffset);

  double surplus = static_cast<double>(key) * frame;
  if (lostBefore) {
    surplus = lead - (key == 0 ? layout.firstLead() : layout.usualLead());
  }
  const auto samples = static_cast<std::uint64_t>(std::abs(surplus) * audio.timescale + 0.5);
  if (surplus > 0) {
    found.audio = found.audio.slice(samples, found.audio.size());
  } else if (lostBefore && -surplus > frame) {
    audio.startDelay += static_cast<std::uint64_t>(-surplus * movieTimescale + 0.5);
  }
  (void)withLongerSample;
}

}  // namespace tallowmark::VideoRepair
