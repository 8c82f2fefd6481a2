// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/SoundHabits.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cmath>
#include <limits>
#include <map>
#include <vector>

#include "MediaKit/Sound/WindowSteps.h"

namespace tallowmark {

namespace {

constexpr std::uint64_t mostSamples = 2000;
constexpr std::size_t longestRepeated = 16;
constexpr int gainSlack = 16;
constexpr std::uint32_t largestSample = 1U << 16U;

// How surprising it is that other data has only what the reference has, of so many values.
double habitBits(std::uint64_t known, unsigned values) {
  const auto count = static_cast<double>(std::bitset<64>(known).count());
  return count == 0 ? 0 : std::max(0.0, std::log2(values / count));
}

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
  std::uint8_t firstElementsSeen(std::uint64_t times) const;

  BlockWalk walk_;
  SoundHabits habits_;
  std::map<ElementPattern, std::uint64_t> patterns_;
  std::array<std::uint64_t, 8> firstElements_{};
  std::map<std::vector<std::uint8_t>, std::uint64_t> shortBlocks_;
  std::uint64_t looked_ = 0;
  std::uint64_t walked_ = 0;
  /// Rows of blocks that could not be walked.
  std::uint64_t strange_ = 0;
  bool wasWalked_ = true;
};

void Learner::look(const std::vector<std::uint8_t>& sample) {
  ++looked_;
  const auto block = walk_.at(sample);
  const bool isWalked = block && block->size == sample.size();
  strange_ += !isWalked && wasWalked_ ? 1U : 0U;
  wasWalked_ = isWalked;
  if (!isWalked) {
    return;
  }
  ++walked_;
  ++patterns_[block->pattern];
  if (sample.size() <= longestRepeated) {
    ++shortBlocks_[sample];
  }
  habits_.smallest = std::min(habits_.smallest, block->size);
  habits_.largest = std::max(habits_.largest, block->size);
  habits_.traits.add(block->traits);
  habits_.rules.paddingIsZero = habits_.rules.paddingIsZero && block->isPaddedWithZeros;
  ++firstElements_.at(static_cast<std::size_t>(block->firstElement));
}

// Bit n: elements of kind n began more than `times` blocks.
std::uint8_t Learner::firstElementsSeen(std::uint64_t times) const {
  unsigned seen = 0;
  for (unsigned kind = 0; kind < firstElements_.size(); ++kind) {
    seen |= firstElements_.at(kind) > times ? 1U << kind : 0U;
  }
  return static_cast<std::uint8_t>(seen);
}

std::optional<SoundHabits> Learner::result() {
  // The first and the last block of a recording can be odd ones, and a reference may have holes,
  // where all are in a row; the syntax is not.
  if (walked_ == 0 || walked_ * 2 < looked_ || strange_ > 2 + looked_ / 100) {
    return std::nullopt;
  }
  habits_.rules.firstElements = firstElementsSeen(0);
  habits_.usualFirstElements = firstElementsSeen(walked_ / 50);
  std::uint64_t most = 0;
  for (const auto& [pattern, count] : patterns_) {
    habits_.rules.patterns.push_back(pattern);
    if (count > most) {
      most = count;
      habits_.usualPattern = pattern;
    }
  }
  constexpr std::uint64_t oftenEnough = 2;
  for (const auto& [bytes, count] : shortBlocks_) {
    if (count >= oftenEnough) {
      habits_.repeated.push_back(bytes);
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

double SoundHabits::evidence(const RawBlock& block, std::span<const std::uint8_t> bytes) const {
  // Random bytes walk as a block of a known pattern at about one position in 2^18.
  constexpr double walks = 17;
  constexpr double strange = 5;
  // A block of silence is so short that counters and flags of other data can read as one, though
  // not as the very one that this encoder writes.
  constexpr double perByte = 2;
  const BlockTraits& own = block.traits;
  double bits = walks + (own.longBands != 0 ? habitBits(traits.longBands, 50)
                                            : habitBits(traits.shortBands, 15));
  bits -= (own.longBands & ~traits.longBands) != 0 ? strange : 0;
  bits -= (own.shortBands & ~traits.shortBands) != 0 ? strange : 0;
  bits -= (own.books & ~unsigned{traits.books}) != 0 ? strange : 0;
  bits -= (own.tools & ~unsigned{traits.tools}) != 0 ? strange : 0;
  bits -= own.lowestGain + gainSlack < traits.lowestGain ||
                  own.highestGain > traits.highestGain + gainSlack
              ? strange
              : 0;
  const bool isRepeated = std::any_of(repeated.begin(), repeated.end(), [&](const auto& known) {
    return std::equal(known.begin(), known.end(), bytes.begin(), bytes.end());
  });
  return isRepeated ? bits : std::min(bits, perByte * block.size);
}

bool SoundHabits::mayBeginAs(std::uint32_t first) const {
  const auto kind = static_cast<BlockElement>(first >> 29U);
  if (kind != BlockElement::singleChannel && kind != BlockElement::lowFrequency &&
      kind != BlockElement::channelPair) {
    return true;
  }
  // Behind kind and tag: a pair's flag for a common window, else a gain; then the window.
  const bool isPair = kind == BlockElement::channelPair;
  const bool isCommon = isPair && ((first >> 24U) & 1U) != 0;
  const std::uint32_t atGain = first << (isPair ? 8U : 7U);
  const int gain = static_cast<int>(atGain >> 24U);
  if (!isCommon &&
      (gain + gainSlack < traits.lowestGain || gain > traits.highestGain + gainSlack)) {
    return false;
  }
  const std::uint32_t window = isCommon ? atGain : atGain << 8U;
  const bool isReserved = window >> 31U != 0;
  constexpr std::uint32_t eightShort = 2;
  const bool isShort = ((window >> 29U) & 3U) == eightShort;
  const std::uint32_t bands = isShort ? (window >> 24U) & 15U : (window >> 22U) & 63U;
  return !isReserved && (((isShort ? traits.shortBands : traits.longBands) >> bands) & 1U) != 0;
}

namespace {

// Looks at blocks one behind the other.
bool doWindowsFit(const Track& track, const ByteSource& source, const BlockWalk& walk) {
  constexpr std::uint64_t enough = 1000;
  WindowSteps steps;
  for (std::uint64_t i = 0; i < std::min(enough, track.samples.size()); ++i) {
    const Sample sample = track.samples[i];
    const auto block = walk.at(source.read(sample.offset, std::min(sample.size, largestSample)));
    if (block) {
      steps.add(block->windows);
    } else {
      steps.forget();
    }
  }
  return !steps.areBroken();
}

}  // namespace

std::optional<SoundHabits> SoundHabits::learn(const Track& track, const ByteSource& source) {
  const auto config = AACConfig::of(track.sampleEntry);
  if (!config || track.samples.empty()) {
    return std::nullopt;
  }
  Learner learner(*config);
  const std::uint64_t stride = track.samples.size() / mostSamples + 1;
  for (std::uint64_t i = 0; i < track.samples.size(); i += stride) {
    const Sample sample = track.samples[i];
    learner.look(source.read(sample.offset, std::min(sample.size, largestSample)));
  }
  auto habits = learner.result();
  if (habits) {
    habits->ticks = track.typicalDuration();
    habits->windowsFit = doWindowsFit(track, source, BlockWalk(*config));
  }
  return habits;
}

}  // namespace tallowmark
