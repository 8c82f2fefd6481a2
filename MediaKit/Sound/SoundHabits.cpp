// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/SoundHabits.h"

#include <algorithm>
#include <limits>
#include <map>
#include <vector>

namespace tallowmark {

namespace {

constexpr std::uint64_t mostSamples = 2000;

/// What the samples of a track have in common.
class Learner {
 public:
  explicit Learner(const AACConfig& config) : walk_(config) {
    habits_.config = config;
    habits_.rules.firstElements = 0;
    habits_.rules.paddingIsZero = true;
    habits_.smallest = std::numeric_limits<std::uint32_t>::max();
  }

  void look(const std::vector<std::uint8_t>& sample);
  std::optional<SoundHabits> result();

 private:
  BlockWalk walk_;
  SoundHabits habits_;
  std::map<ElementPattern, std::uint64_t> patterns_;
  std::uint64_t looked_ = 0;
  std::uint64_t walked_ = 0;
};

void Learner::look(const std::vector<std::uint8_t>& sample) {
  ++looked_;
  const auto block = walk_.at(sample);
  if (!block || block->size != sample.size()) {
    return;
  }
  ++walked_;
  ++patterns_[block->pattern];
  habits_.smallest = std::min(habits_.smallest, block->size);
  habits_.largest = std::max(habits_.largest, block->size);
  habits_.longBands |= block->longBands;
  habits_.shortBands |= block->shortBands;
  habits_.rules.paddingIsZero = habits_.rules.paddingIsZero && block->isPaddedWithZeros;
  habits_.rules.firstElements = static_cast<std::uint8_t>(
      habits_.rules.firstElements | (1U << static_cast<unsigned>(block->firstElement)));
}

std::optional<SoundHabits> Learner::result() {
  // The first and the last block of a recording can be odd ones, the syntax is not.
  if (walked_ == 0 || walked_ + 2 + looked_ / 100 < looked_) {
    return std::nullopt;
  }
  std::uint64_t most = 0;
  for (const auto& [pattern, count] : patterns_) {
    habits_.rules.patterns.push_back(pattern);
    if (count > most) {
      most = count;
      habits_.usualPattern = pattern;
    }
  }
  // An encoder with a reservoir of bits may spend 6144 of them a channel (§4.5.3.1).
  constexpr std::uint32_t largestPerChannel = 768;
  constexpr std::uint32_t largestAnywhere = 8192;
  habits_.rules.largestSize =
      std::min(largestAnywhere,
               std::max(habits_.largest * 2, largestPerChannel * habits_.config.mostChannels()));
  return habits_;
}

}  // namespace

std::optional<SoundHabits> SoundHabits::learn(const Track& track, const ByteSource& source) {
  const auto config = AACConfig::of(track.sampleEntry);
  if (!config || track.samples.empty()) {
    return std::nullopt;
  }
  constexpr std::uint32_t largestSample = 1U << 16U;
  Learner learner(*config);
  const std::uint64_t stride = track.samples.size() / mostSamples + 1;
  for (std::uint64_t i = 0; i < track.samples.size(); i += stride) {
    const Sample sample = track.samples[i];
    learner.look(source.read(sample.offset, std::min(sample.size, largestSample)));
  }
  auto habits = learner.result();
  if (habits) {
    habits->ticks = track.typicalDuration();
  }
  return habits;
}

}  // namespace tallowmark
