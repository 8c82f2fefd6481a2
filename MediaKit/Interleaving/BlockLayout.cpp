// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/BlockLayout.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include "MediaKit/Container/MovieParser.h"

namespace tallowmark {

namespace {

/// What stands between two stretches of pictures.
struct Gap {
  struct Piece {
    /// Place in the layout's tracks; nothing for other data.
    std::optional<std::size_t> track;
    std::uint64_t bytes = 0;
    std::uint64_t blocks = 0;
    /// Pictures of another track, which a walk may pass over before it comes to the gap.
    bool isPictures = false;
  };
  std::vector<Piece> pieces;

  void add(const Piece& piece) {
    if (piece.bytes == 0) {
      return;
    }
    if (!pieces.empty() && pieces.back().track == piece.track &&
        pieces.back().isPictures == piece.isPictures) {
      pieces.back().bytes += piece.bytes;
      pieces.back().blocks += piece.blocks;
    } else {
      pieces.push_back(piece);
    }
  }
};

class Learner {
 public:
  Learner(const Movie& movie, BlockLayout& layout) : movie_(movie), layout_(layout) {
    layout_.fewestOthers = std::numeric_limits<std::uint64_t>::max();
  }

  void learnGaps(const std::vector<Extent>& extents, std::uint64_t start);
  void learnOrders(const std::vector<Extent>& extents, std::uint64_t start);
  void learnArrivals(const std::vector<Extent>& extents);
  void learnLead(const std::vector<Extent>& extents);
  void learnEdges(const std::vector<Extent>& extents, const ByteSource& source);
  void learnSoundBeside(const std::vector<Extent>& extents, const ByteSource& source);

 private:
  std::optional<std::size_t> placeOf(const Track* track) const;
  bool isOtherPicture(const Track& track) const;
  template <typename Visit>
  Gap forEachGap(const std::vector<Extent>& extents, std::uint64_t start, Visit visit) const;
  void learnGap(const Gap& gap);
  double blocksOfPicture() const;

  const Movie& movie_;
  BlockLayout& layout_;
};

std::optional<std::size_t> Learner::placeOf(const Track* track) const {
  for (std::size_t place = 0; place < layout_.tracks.size(); ++place) {
    if (&movie_.tracks[layout_.tracks[place].number] == track) {
      return place;
    }
  }
  return std::nullopt;
}

// Whether its pictures are passed over as this track's are taken.
bool Learner::isOtherPicture(const Track& track) const {
  const Track& video = *movie_.videoTrack();
  return &track != &video && track.kind == Track::Kind::video && track.codec == video.codec;
}

// How long a picture lasts, in blocks.
double Learner::blocksOfPicture() const {
  const Track* video = movie_.videoTrack();
  const Track* audio = &movie_.tracks[layout_.tracks.front().number];
  const std::uint32_t ticks = layout_.kinds.front().ticks;
  return video->timescale == 0 || ticks == 0 ? 0
                                             : static_cast<double>(video->typicalDuration()) /
                                                   video->timescale * audio->timescale / ticks;
}

TrackOrder::Order orderOf(const Gap& gap) {
  TrackOrder::Order order;
  for (const Gap::Piece& piece : gap.pieces) {
    order.insert(order.end(), piece.track ? static_cast<std::size_t>(piece.blocks) : 0,
                 static_cast<std::uint8_t>(piece.track.value_or(0)));
  }
  return order;
}

void Learner::learnGap(const Gap& gap) {
  if (gap.pieces.empty()) {
    return;
  }
  std::uint64_t others = 0;
  std::uint64_t pictures = 0;
  std::uint64_t blocks = 0;
  for (const Gap::Piece& piece : gap.pieces) {
    blocks += piece.blocks;
    others += piece.track ? 0 : piece.bytes;
    pictures += piece.isPictures ? piece.bytes : 0;
  }
  layout_.mostBlocks = std::max(layout_.mostBlocks, blocks);
  layout_.mostOthers = std::max(layout_.mostOthers, others);
  layout_.fewestOthers = std::min(layout_.fewestOthers, others - pictures);
  layout_.hasGapsWithoutSound = layout_.hasGapsWithoutSound || blocks == 0;
}

// Returns what stands behind the last picture: it ends as the recording ended, no habit.
template <typename Visit>
Gap Learner::forEachGap(const std::vector<Extent>& extents, std::uint64_t start,
                        Visit visit) const {
  Gap gap;
  std::uint64_t at = start;
  for (const Extent& extent : extents) {
    if (extent.from < at) {
      continue;  // lies outside the media data, or over another stretch
    }
    gap.add({std::nullopt, extent.from - at});
    at = extent.to;
    if (extent.track == movie_.videoTrack()) {
      visit(gap);
      gap.pieces.clear();
    } else if (const auto place = placeOf(extent.track)) {
      gap.add({place, extent.to - extent.from, extent.samples});
    } else {
      gap.add({std::nullopt, extent.to - extent.from, 0, isOtherPicture(*extent.track)});
    }
  }
  return gap;
}

void Learner::learnGaps(const std::vector<Extent>& extents, std::uint64_t start) {
  forEachGap(extents, start, [&](const Gap& gap) { learnGap(gap); });
  layout_.fewestOthers = std::min(layout_.fewestOthers, layout_.mostOthers);
}

void Learner::learnOrders(const std::vector<Extent>& extents, std::uint64_t start) {
  std::vector<std::uint8_t> kinds;
  for (const BlockLayout::SoundTrack& track : layout_.tracks) kinds.push_back(track.kind);
  layout_.order = TrackOrder(std::move(kinds), layout_.mostBlocks);
  if (layout_.tracks.size() > 1) {
    const auto learnNext = [&](const Gap& gap) { layout_.order.learn(orderOf(gap)); };
    layout_.order.learnEnd(orderOf(forEachGap(extents, start, learnNext)));
  }
}

void Learner::learnArrivals(const std::vector<Extent>& extents) {
  std::uint64_t frame = 0;
  std::uint64_t blocks = 0;
  for (const Extent& extent : extents) {
    if (placeOf(extent.track)) {
      blocks += extent.samples;
    } else if (extent.track == movie_.videoTrack()) {
      if (blocks > 0) layout_.arrivals.add(frame, static_cast<std::size_t>(blocks));
      blocks = 0;
      frame += extent.samples;
    }
  }
}

// At the first picture behind each stretch of sound.
void Learner::learnLead(const std::vector<Extent>& extents) {
  const Track* audio = &movie_.tracks[layout_.tracks.front().number];
  std::vector<double> leads;
  double sound = 0;
  double pictures = 0;
  bool isBehindSound = false;
  for (const Extent& extent : extents) {
    if (extent.track == audio) {
      sound = extent.startTime + extent.length;
      isBehindSound = true;
    } else if (extent.track == movie_.videoTrack()) {
      pictures = extent.startTime + extent.length;
      if (!std::exchange(isBehindSound, false)) continue;
      leads.push_back(sound - extent.startTime);
    }
  }
  layout_.endLead = sound - pictures;
  layout_.lead = SoundLead::of(leads);
  constexpr std::size_t enough = 3;
  if (leads.size() >= enough) leads.erase(leads.begin());
  // The last chunk is as long as the recording went on.
  for (std::size_t i = 1; i + 1 < leads.size(); ++i) {
    layout_.leadStep = std::max(layout_.leadStep, std::abs(leads[i] - leads[i - 1]));
  }
  layout_.laterLead = SoundLead::of(std::move(leads));
  // Of chunks, pictures tell nothing so fine.
  if (!layout_.arrivals.areFarApart()) layout_.order.learnPicture(blocksOfPicture());
}

/// Counts distances and keeps the usual ones.
class Distances {
 public:
  void add(std::uint64_t distance) {
    constexpr std::size_t mostKinds = 4096;
    if (counts_.size() < mostKinds || counts_.contains(distance)) {
      ++counts_[distance];
      ++total_;
    }
  }
  std::vector<std::uint64_t> usual() const {
    std::vector<std::uint64_t> usual;
    for (const auto& [distance, count] : counts_) {
      if (count * 10 >= total_) {
        usual.push_back(distance);
      }
    }
    return usual;
  }

 private:
  std::map<std::uint64_t, std::uint64_t> counts_;
  std::uint64_t total_ = 0;
};

/// Finds what the bytes in one place beside sound have in common.
class MarkLearner {
 public:
  void add(const std::vector<std::uint8_t>& there) {
    if (there.size() != mark_.bytes.size()) {
      return;
    }
    if (seen_++ == 0) {
      std::copy(there.begin(), there.end(), mark_.bytes.begin());
      mark_.fixed = 0xFFFF;
    }
    for (std::size_t i = 0; i < there.size(); ++i) {
      if (there[i] != mark_.bytes[i]) {
        mark_.fixed &= ~(1U << i);
      }
    }
  }
  bool wantsMore() const { return seen_ < mostLooks; }
  /// `least`: bits, of which fewer are no habit.
  SoundMark result(double least) {
    // Zeros stand ahead of many things.
    for (std::size_t i = 0; i < mark_.bytes.size(); ++i) {
      mark_.bits += ((mark_.fixed >> i) & 1U) == 0 ? 0 : mark_.bytes[i] == 0 ? 0.5 : 7;
    }
    constexpr unsigned enoughLooks = 8;
    constexpr double most = 28;
    return seen_ >= enoughLooks && mark_.bits >= least
               ? SoundMark{mark_.bytes, mark_.fixed, std::min(mark_.bits, most)}
               : SoundMark{};
  }

 private:
  static constexpr unsigned mostLooks = 500;
  SoundMark mark_;
  unsigned seen_ = 0;
};

void Learner::learnEdges(const std::vector<Extent>& extents, const ByteSource& source) {
  Distances due;
  Distances edges;
  MarkLearner mark;
  const Track* video = movie_.videoTrack();
  std::optional<std::uint64_t> known;  // end of the last picture, of any track, or sound
  std::optional<std::uint64_t> sound;  // end of the last sound, while no picture follows
  for (const Extent& extent : extents) {
    const bool isSound = placeOf(extent.track).has_value();
    const bool isOthers = isOtherPicture(*extent.track);
    if ((known && extent.from < *known) || (!isSound && extent.track != video && !isOthers)) {
      continue;
    }
    // Sound ahead of pictures that are passed over does not end at one of ours.
    if (isOthers) {
      known = extent.to;
      sound.reset();
      continue;
    }
    if (isSound && known) {
      const std::uint64_t distance = extent.from - *known;
      due.add(distance);
      const std::size_t length = SoundMark().bytes.size();
      if (distance >= length && mark.wantsMore()) {
        mark.add(source.read(extent.from - length, length));
      }
    } else if (!isSound && sound) {
      edges.add(extent.from - *sound);
    }
    sound = isSound ? std::optional(extent.to) : std::nullopt;
    known = extent.to;
  }
  layout_.dueBehind = due.usual();
  layout_.edgeAhead = edges.usual();
  layout_.mark = mark.result(14);
}

void Learner::learnSoundBeside(const std::vector<Extent>& extents, const ByteSource& source) {
  MarkLearner opening;
  SoundBeside& beside = layout_.beside;
  // Where PCM is kept, its chunks are what stands between blocks.
  beside.isUncompressed = !placeOf(movie_.audioTrack());
  const auto kind = beside.isUncompressed ? Track::Kind::audio : Track::Kind::other;
  std::uint64_t at = 0;      // end of the last stretch of any track
  std::uint64_t length = 0;  // of other sound that ends there
  bool isBehindBlock = false;
  for (const Extent& extent : extents) {
    const bool isBlock = placeOf(extent.track).has_value();
    const bool isOther = !isBlock && extent.track->kind == kind && extent.track->handler == "soun";
    const bool goesOn = extent.from == at;
    if (isBlock && goesOn && length > 0) {
      beside.shortest = beside.shortest == 0 ? length : std::min(beside.shortest, length);
      beside.longest = std::max(beside.longest, length);
    } else if (isOther && goesOn && isBehindBlock && opening.wantsMore() &&
               !beside.isUncompressed) {
      opening.add(source.read(extent.from, SoundMark().bytes.size()));
    }
    length = isOther ? (goesOn ? length : 0) + extent.to - extent.from : 0;
    at = extent.to;
    isBehindBlock = isBlock;
  }
  constexpr double oneByte = 7;
  beside.opening = opening.result(oneByte);
}

bool looksAlike(const SoundHabits& a, const SoundHabits& b) {
  return a.config == b.config && a.usualPattern == b.usualPattern && a.ticks == b.ticks;
}

// Whether blocks of both can be walked as the first's, and none could be of either.
bool canBeTold(const SoundHabits& a, const SoundHabits& b) {
  const auto& patterns = b.rules.patterns;
  return a.config.rateIndex == b.config.rateIndex && a.config.frameLength == b.config.frameLength &&
         !patterns.empty() && !a.rules.patterns.empty() &&
         std::none_of(patterns.begin(), patterns.end(), [&](ElementPattern pattern) {
           return std::find(a.rules.patterns.begin(), a.rules.patterns.end(), pattern) !=
                  a.rules.patterns.end();
         });
}

// The kind of a track's blocks, which may be a new one; nothing when they could be of another.
std::optional<std::uint8_t> kindAmong(std::vector<SoundHabits>& kinds, const SoundHabits& habits) {
  const auto known = std::find_if(kinds.begin(), kinds.end(), [&](const SoundHabits& kind) {
    return looksAlike(kind, habits);
  });
  const auto number = static_cast<std::uint8_t>(known - kinds.begin());
  if (known == kinds.end()) {
    if (!std::all_of(kinds.begin(), kinds.end(),
                     [&](const SoundHabits& kind) { return canBeTold(kind, habits); })) {
      return std::nullopt;
    }
    kinds.push_back(habits);
  }
  return number;
}

}  // namespace

bool SoundBeside::mayFill(std::uint64_t distance) const {
  return !isUncompressed && longest > 0 && distance >= shortest / 2 && distance <= longest * 2;
}

bool SoundMark::matches(std::span<const std::uint8_t> there) const {
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (((fixed >> i) & 1U) != 0 && there[i] != bytes[i]) {
      return false;
    }
  }
  return true;
}

bool BlockLayout::isDueBehind(std::uint64_t distance) const {
  return std::find(dueBehind.begin(), dueBehind.end(), distance) != dueBehind.end();
}

bool BlockLayout::isEdgeAhead(std::uint64_t distance) const {
  return std::find(edgeAhead.begin(), edgeAhead.end(), distance) != edgeAhead.end();
}

bool BlockLayout::isOf(const Movie& reference, const Track& track) const {
  return std::any_of(tracks.begin(), tracks.end(), [&](const SoundTrack& own) {
    return &reference.tracks[own.number] == &track;
  });
}

BlockWalk BlockLayout::walk() const {
  AACConfig config = kinds.front().config;
  BlockRules rules = kinds.front().rules;
  for (std::size_t kind = 1; kind < kinds.size(); ++kind) {
    const BlockRules& more = kinds[kind].rules;
    rules.patterns.insert(rules.patterns.end(), more.patterns.begin(), more.patterns.end());
    rules.firstElements |= more.firstElements;
    rules.largestSize = std::max(rules.largestSize, more.largestSize);
    rules.paddingIsZero = rules.paddingIsZero && more.paddingIsZero;
    config.channelConfiguration = 0;  // the patterns say how many there may be
  }
  return BlockWalk(config, std::move(rules));
}

std::uint64_t BlockLayout::mostBytes() const {
  std::uint64_t largest = 0;
  for (const SoundHabits& kind : kinds) {
    largest = std::max<std::uint64_t>(largest, kind.rules.largestSize);
  }
  return mostBlocks * largest + mostOthers;
}

std::uint8_t BlockLayout::kindOf(ElementPattern pattern) const {
  for (std::size_t kind = 1; kind < kinds.size(); ++kind) {
    const auto& patterns = kinds[kind].rules.patterns;
    if (std::find(patterns.begin(), patterns.end(), pattern) != patterns.end()) {
      return static_cast<std::uint8_t>(kind);
    }
  }
  return 0;
}

std::optional<BlockLayout> BlockLayout::learn(const Movie& reference, const ByteSource& source) {
  return learnFrom(reference.audioTrack(), reference, source);
}

std::optional<BlockLayout> BlockLayout::learnBeside(const Movie& reference,
                                                    const ByteSource& source) {
  const auto first =
      std::find_if(reference.tracks.begin(), reference.tracks.end(), [](const Track& track) {
        return track.kind == Track::Kind::audio && AACConfig::of(track.sampleEntry);
      });
  return first == reference.tracks.end() ? std::nullopt : learnFrom(&*first, reference, source);
}

std::optional<BlockLayout> BlockLayout::learnFrom(const Track* audio, const Movie& reference,
                                                  const ByteSource& source) {
  const Track* video = reference.videoTrack();
  auto habits = audio != nullptr ? SoundHabits::learn(*audio, source) : std::nullopt;
  const std::vector<Box> mdats = MovieParser::layout(BoxReader(source)).mdats;
  if (!habits || video == nullptr || mdats.empty()) {
    return std::nullopt;
  }
  BlockLayout layout;
  layout.kinds.push_back(std::move(*habits));
  // Field recorders have up to eight; each costs a look at thousands of samples.
  constexpr std::size_t mostTracks = 16;
  std::size_t looked = 0;
  for (std::size_t i = 0; i < reference.tracks.size() && looked < mostTracks; ++i) {
    const Track& track = reference.tracks[i];
    if (track.kind != Track::Kind::audio) {
      continue;
    }
    ++looked;
    const auto other =
        &track == audio ? std::optional(layout.kinds.front()) : SoundHabits::learn(track, source);
    if (!other) {
      continue;
    }
    const auto kind = kindAmong(layout.kinds, *other);
    if (!kind || (*kind == 0 && track.timescale != audio->timescale)) {
      return std::nullopt;
    }
    layout.tracks.push_back({i, *kind});
  }
  const std::vector<Extent> extents = extentsOf(reference);
  Learner learner(reference, layout);
  learner.learnGaps(extents, mdats.front().payloadOffset());
  learner.learnOrders(extents, mdats.front().payloadOffset());
  learner.learnArrivals(extents);
  learner.learnLead(extents);
  learner.learnEdges(extents, source);
  learner.learnSoundBeside(extents, source);
  return layout;
}

}  // namespace tallowmark
