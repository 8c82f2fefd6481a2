// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/ChunkOrderLearner.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "MediaKit/Interleaving/PCMLayout.h"

namespace tallowmark {

namespace {

// Cameras have up to eight; a reference that has any number must not make every gap a long search.
constexpr std::size_t mostPCMTracks = 16;
constexpr std::size_t mostSurroundings = 8;
constexpr std::size_t mostLengths = 16;
constexpr std::uint64_t mostRoundsOfGap = 64;

// The largest power of two that divides all.
std::uint64_t commonAlignment(const std::vector<std::uint64_t>& places, std::uint64_t origin) {
  constexpr std::uint64_t largest = std::uint64_t{1} << 20U;
  std::uint64_t bits = largest;
  for (const std::uint64_t place : places) {
    bits |= place - origin;
  }
  return std::uint64_t{1} << static_cast<unsigned>(std::countr_zero(bits));
}

// Whether places are hardly all multiples of `alignment` by chance.
bool isHabit(std::uint64_t alignment, std::size_t places) {
  constexpr std::uint64_t smallest = 64;
  constexpr std::size_t enoughBits = 40;
  const auto bits = static_cast<std::size_t>(std::countr_zero(alignment));
  return alignment >= smallest && places > 1 && bits * (places - 1) >= enoughBits;
}

}  // namespace

ChunkOrderLearner::ChunkOrderLearner(const std::vector<Extent>& extents, const ByteRange& media,
                                     const Track& video, const Track& audio,
                                     const ByteSource& source)
    : media_(media), audio_(audio), source_(source) {
  std::map<const Track*, bool> asked;
  for (const Extent& extent : extents) {
    if (extent.track->kind == Track::Kind::audio && asked.emplace(extent.track, true).second) {
      if (const auto pcm = PCMLayout::ofEvenSamples(*extent.track)) {
        sampleSizes_[extent.track] = pcm->sampleSize;
      }
    }
  }
  collectGaps(extents, video);
  findAlignment();
}

void ChunkOrderLearner::collectGaps(const std::vector<Extent>& extents, const Track& video) {
  gaps_.push_back({media_.lower, media_.lower, {}});
  std::uint64_t at = media_.lower;
  for (const Extent& extent : extents) {
    if (extent.from < at || extent.to > media_.upper) {
      continue;  // lies outside the media data, or over another stretch
    }
    // Pictures of another track of this codec are passed over as this one's are taken.
    const bool isPicture = extent.track->kind == Track::Kind::video &&
                           (extent.track == &video || extent.track->codec == video.codec);
    if (isPicture) {
      gaps_.back().to = extent.from;
      if (extent.from > at || !gaps_.back().extents.empty()) pictures_.push_back(extent.from);
      gaps_.push_back({extent.to, extent.to, {}});
    } else {
      gaps_.back().extents.push_back(&extent);
    }
    at = extent.to;
  }
  gaps_.back().to = media_.upper;
}

void ChunkOrderLearner::findAlignment() {
  std::vector<std::uint64_t> places;
  std::uint64_t padded = 0;
  for (const Gap& gap : gaps_) {
    std::uint64_t at = gap.from;
    for (const Extent* extent : gap.extents) {
      if (isPCM(*extent)) places.push_back(extent->from);
      padded += isPCM(*extent) && extent->from > at ? 1U : 0U;
      at = extent->to;
    }
  }
  std::vector<std::uint64_t> all = places;
  all.insert(all.end(), pictures_.begin(), pictures_.end());
  const auto choose = [&](const std::vector<std::uint64_t>& of) {
    const std::uint64_t inFile = commonAlignment(of, 0);
    const std::uint64_t inMedia = commonAlignment(of, media_.lower);
    const std::uint64_t larger = std::max(inFile, inMedia);
    if (isHabit(larger, of.size())) {
      order_.alignment_ = larger;
      order_.countsFromMedia_ = inFile < larger;
    }
    return order_.alignment_ > 1;
  };
  if (padded * 2 < places.size() || padded == 0) {
    return;
  }
  order_.picturesAreAligned_ = choose(all);
  if (!order_.picturesAreAligned_) choose(places);
}

bool ChunkOrderLearner::hasRivals() const {
  return std::any_of(gaps_.begin(), gaps_.end(), [&](const Gap& gap) {
    return std::any_of(gap.extents.begin(), gap.extents.end(), [&](const Extent* extent) {
      return isPCM(*extent) && extent->track != &audio_;
    });
  });
}

// Sound of PCM tracks in one piece, with nothing but padding in it.
std::optional<ChunkOrderLearner::Shape> ChunkOrderLearner::shapeOf(const Gap& gap) const {
  const ChunkOrder::Gap place{gap.from, gap.to, ChunkOrder::Follows::picture,
                              order_.countsFromMedia_ ? media_.lower % order_.alignment_ : 0};
  Shape shape;
  std::uint64_t at = gap.from;
  const auto other = [&](std::uint64_t from, std::uint64_t to) {
    auto& stretches = shape.sound.empty() ? shape.around.before : shape.around.behind;
    if (!stretches.empty() && from == at && order_.alignment_ == 1) {
      stretches.back() += to - from;
    } else {
      stretches.push_back(to - from);
    }
  };
  for (const Extent* extent : gap.extents) {
    if (extent->from > at && order_.aligned(at, place) != extent->from) {
      other(at, extent->from);
      at = extent->from;
    }
    if (!isPCM(*extent)) {
      other(extent->from, extent->to);
    } else if (!shape.around.behind.empty()) {
      return std::nullopt;
    } else {
      shape.sound.push_back(extent);
    }
    at = extent->to;
  }
  const bool isLast = &gap == &gaps_.back();
  const bool isPadding = order_.picturesAreAligned_ && order_.aligned(at, place) == gap.to;
  if (gap.to > at && !isPadding && !isLast) other(at, gap.to);
  return shape;
}

void ChunkOrderLearner::findTracks() {
  std::map<std::vector<const Track*>, std::uint64_t> votes;
  for (const Gap& gap : gaps_) {
    const auto shape = shapeOf(gap);
    if (!shape || shape->sound.empty()) {
      continue;
    }
    std::vector<const Track*> round;
    for (const Extent* extent : shape->sound) {
      if (std::find(round.begin(), round.end(), extent->track) != round.end()) break;
      round.push_back(extent->track);
    }
    ++votes[round];
  }
  const auto most = std::max_element(
      votes.begin(), votes.end(), [](const auto& a, const auto& b) { return a.second < b.second; });
  if (most == votes.end() || most->first.size() > mostPCMTracks) {
    return;
  }
  const auto kept = std::find(most->first.begin(), most->first.end(), &audio_);
  if (kept == most->first.end()) {
    return;
  }
  order_.kept_ = static_cast<std::size_t>(kept - most->first.begin());
  order_.tracks_ = most->first;
  for (const Track* track : order_.tracks_) order_.sampleSizes_.push_back(sampleSizes_.at(track));
}

// Samples of a chunk in this gap, where all are alike; a last round may be shorter.
std::optional<std::uint64_t> ChunkOrderLearner::learnRounds(const Gap& gap) {
  const auto shape = shapeOf(gap);
  const std::size_t tracks = order_.tracks_.size();
  if (!shape || shape->sound.empty() || shape->sound.size() % tracks != 0) {
    return std::nullopt;
  }
  const std::uint64_t rounds = shape->sound.size() / tracks;
  const std::uint64_t samples = shape->sound.front()->samples;
  for (std::size_t i = 0; i < shape->sound.size(); ++i) {
    const bool isLastRound = &gap == &gaps_.back() && rounds > 1 && i / tracks == rounds - 1;
    if (shape->sound[i]->track != order_.tracks_[i % tracks] ||
        (shape->sound[i]->samples != samples && !isLastRound)) {
      return std::nullopt;
    }
  }
  order_.mostRounds_ = std::max(order_.mostRounds_, std::min(rounds, mostRoundsOfGap));
  if (order_.surroundings_.size() < mostSurroundings) order_.surroundings_.insert(shape->around);
  return samples;
}

void ChunkOrderLearner::findLengths() {
  std::map<std::uint64_t, std::uint64_t> times;
  std::uint64_t gaps = 0;
  for (const Gap& gap : gaps_) {
    const std::uint64_t roundsBefore = order_.mostRounds_;
    const auto samples = learnRounds(gap);
    // Rounds behind the last picture tell nothing where chunks have no length of their own.
    if (&gap == &gaps_.back() && times.size() > 1) order_.mostRounds_ = roundsBefore;
    // The last chunk of all ends where the recording did.
    if (!samples || (&gap == &gaps_.back() && gaps > 0)) {
      continue;
    }
    ++gaps;
    if (times.size() <= mostLengths) ++times[*samples];
    order_.shortest_ = order_.shortest_ == 0 ? *samples : std::min(order_.shortest_, *samples);
    order_.longest_ = std::max(order_.longest_, *samples);
  }
  for (const auto& [samples, count] : times) {
    if (times.size() <= mostLengths && (order_.mostRounds_ == 1 || count * 20 >= gaps * 19)) {
      order_.lengths_.insert(samples);
    }
  }
}

void ChunkOrderLearner::findSoundless() {
  constexpr std::size_t mostSizes = 64;
  std::set<std::uint64_t> withSound;
  for (const Gap& gap : gaps_) {
    const bool hasSound = std::any_of(gap.extents.begin(), gap.extents.end(),
                                      [&](const Extent* extent) { return isPCM(*extent); });
    if (hasSound) withSound.insert(gap.to - gap.from);
  }
  for (const Gap& gap : gaps_) {
    const std::uint64_t size = gap.to - gap.from;
    if (order_.soundless_.size() < mostSizes && !withSound.contains(size)) {
      order_.soundless_.insert(size);
    }
  }
}

void ChunkOrderLearner::lookAtPadding() {
  constexpr int mostLooked = 64;
  int looked = 0;
  bool isZero = order_.alignment_ > 1;
  for (auto gap = gaps_.begin(); gap != gaps_.end() && isZero && looked < mostLooked; ++gap) {
    std::uint64_t at = gap->from;
    for (const Extent* extent : gap->extents) {
      const std::uint64_t bytes = extent->from - at;
      if (bytes > 0 && bytes < order_.alignment_) {
        const auto padding = source_.read(at, static_cast<std::size_t>(bytes));
        isZero = isZero && std::all_of(padding.begin(), padding.end(),
                                       [](std::uint8_t byte) { return byte == 0; });
        ++looked;
      }
      at = extent->to;
    }
  }
  order_.padsWithZeros_ = isZero && looked > 0;
}

// An order that would once put a byte of the reference elsewhere is none.
bool ChunkOrderLearner::dividesAll() {
  std::uint64_t withSound = 0;
  std::uint64_t told = 0;
  for (const Gap& gap : gaps_) {
    const bool isLast = &gap == &gaps_.back();
    ChunkOrder::Chunks truth(order_.tracks_.size());
    bool isStrange = false;
    for (const Extent* extent : gap.extents) {
      if (!isPCM(*extent)) continue;
      const auto track = std::find(order_.tracks_.begin(), order_.tracks_.end(), extent->track);
      isStrange = isStrange || track == order_.tracks_.end();
      if (isStrange) break;
      truth[static_cast<std::size_t>(track - order_.tracks_.begin())].push_back(
          {extent->from, extent->to});
    }
    const auto follows = isLast ? ChunkOrder::Follows::endOfMedia : ChunkOrder::Follows::picture;
    const auto divided =
        gap.to > gap.from ? order_.divide(source_, gap.from, gap.to, follows) : truth;
    const bool isRight = divided && !isStrange && *divided == truth;
    if (divided && !isRight && !isLast) {
      return false;
    }
    const bool hasSound =
        std::any_of(truth.begin(), truth.end(), [](const auto& chunks) { return !chunks.empty(); });
    order_.tellsEnd_ = !isLast || (hasSound && isRight);
    withSound += hasSound || isStrange ? 1U : 0U;
    told += hasSound && isRight ? 1U : 0U;
  }
  return told * 4 >= withSound * 3;
}

std::optional<ChunkOrder> ChunkOrderLearner::learn() {
  if (!hasRivals() && order_.alignment_ == 1) {
    return std::nullopt;
  }
  findTracks();
  if (!order_.tracks_.empty()) {
    findLengths();
    findSoundless();
    lookAtPadding();
    const bool canDivide =
        !order_.surroundings_.empty() && (order_.mostRounds_ == 1 || order_.lengths_.size() == 1);
    order_.isKnown_ = canDivide && dividesAll();
  }
  return std::move(order_);
}

std::optional<ChunkOrder> ChunkOrder::learn(const std::vector<Extent>& extents,
                                            const ByteRange& media, const Track& video,
                                            const Track& audio, const ByteSource& source) {
  return ChunkOrderLearner(extents, media, video, audio, source).learn();
}

}  // namespace tallowmark
