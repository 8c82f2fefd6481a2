// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/SoundLayout.h"

#include <algorithm>
#include <cmath>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MovieParser.h"

namespace tallowmark {

namespace {

/// A stretch of the reference's file that belongs to one kind of track.
struct Extent {
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  Track::Kind kind = Track::Kind::other;
  /// Seconds of the track before it, and in it.
  double startTime = 0;
  double length = 0;
};

void addExtents(const Track& track, Track::Kind kind, std::vector<Extent>& extents) {
  const double ticks = std::max(1U, track.timescale);
  double time = 0;
  for (const SampleRun& run : track.samples.runs()) {
    const double length = static_cast<double>(run.duration()) / ticks;
    if (!extents.empty() && extents.back().to == run.first.offset && extents.back().kind == kind) {
      extents.back().to = run.end();
      extents.back().length += length;
    } else {
      extents.push_back({run.first.offset, run.end(), kind, time, length});
    }
    time += length;
  }
}

std::vector<Extent> extentsOf(const Movie& movie, const Track& video, const Track& audio) {
  std::vector<Extent> extents;
  for (const Track& track : movie.tracks) {
    const Track::Kind kind = &track == &video   ? Track::Kind::video
                             : &track == &audio ? Track::Kind::audio
                                                : Track::Kind::other;
    addExtents(track, kind, extents);
  }
  std::sort(extents.begin(), extents.end(),
            [](const Extent& a, const Extent& b) { return a.from < b.from; });
  return extents;
}

}  // namespace

class SoundLayoutLearner {
 public:
  explicit SoundLayoutLearner(PCMLayout pcm) { layout_.pcm_ = pcm; }

  void learn(const std::vector<Extent>& extents, std::uint64_t start, std::uint64_t end);
  SoundLayout result() { return std::move(layout_); }

 private:
  struct Piece {
    bool isSound;
    std::uint64_t bytes;
  };

  void learnGap(const std::vector<Piece>& pieces);
  void learnLead(const std::vector<Extent>& extents);
  static void add(std::vector<Piece>& pieces, bool isSound, std::uint64_t bytes);

  SoundLayout layout_;
};

void SoundLayoutLearner::add(std::vector<Piece>& pieces, bool isSound, std::uint64_t bytes) {
  if (bytes == 0) {
    return;
  }
  if (!pieces.empty() && pieces.back().isSound == isSound) {
    pieces.back().bytes += bytes;
  } else {
    pieces.push_back({isSound, bytes});
  }
}

void SoundLayoutLearner::learnGap(const std::vector<Piece>& pieces) {
  if (pieces.empty()) {
    return;
  }
  std::string shape;
  std::uint64_t total = 0;
  std::uint64_t before = 0;
  std::uint64_t sound = 0;
  for (const Piece& piece : pieces) {
    shape += piece.isSound ? 'A' : 'O';
    total += piece.bytes;
    if (piece.isSound) {
      sound = piece.bytes;
    } else if (sound == 0) {
      before += piece.bytes;
    }
  }
  if (std::count(shape.begin(), shape.end(), 'A') > 1) {
    return;
  }
  const std::pair<std::uint64_t, std::uint64_t> division(before, sound);
  const auto [known, isNew] = layout_.totals_.emplace(total, division);
  if (!isNew && known->second != division) {
    known->second.reset();
  }
  SoundLayout::Pattern& pattern = layout_.patterns_[shape];
  ++pattern.count;
  if (sound > 0) {
    pattern.others.emplace(before, total - before - sound);
    layout_.smallestSound_ =
        layout_.smallestSound_ == 0 ? sound : std::min(layout_.smallestSound_, sound);
    layout_.largestSound_ = std::max(layout_.largestSound_, sound);
  }
}

// Sound stored before each stretch of pictures, against the pictures' own time.
void SoundLayoutLearner::learnLead(const std::vector<Extent>& extents) {
  double sound = 0;
  double sum = 0;
  std::vector<double> leads;
  for (const Extent& extent : extents) {
    if (extent.kind == Track::Kind::audio) {
      sound += extent.length;
    } else if (extent.kind == Track::Kind::video) {
      leads.push_back(sound - extent.startTime);
      sum += leads.back();
    }
  }
  if (leads.empty()) {
    return;
  }
  layout_.firstLead_ = leads.front();
  layout_.usualLead_ = sum / static_cast<double>(leads.size());
  for (const double lead : leads) {
    layout_.leadSpread_ = std::max(layout_.leadSpread_, std::abs(lead - layout_.usualLead_));
  }
}

void SoundLayoutLearner::learn(const std::vector<Extent>& extents, std::uint64_t start,
                               std::uint64_t end) {
  std::vector<Piece> pieces;
  std::uint64_t at = start;
  for (const Extent& extent : extents) {
    if (extent.from < at) {
      continue;  // lies outside the media data, or over another stretch
    }
    add(pieces, false, extent.from - at);
    at = extent.to;
    if (extent.kind == Track::Kind::video) {
      learnGap(pieces);
      pieces.clear();
    } else {
      add(pieces, extent.kind == Track::Kind::audio, extent.to - extent.from);
    }
  }
  if (end > at) {
    add(pieces, false, end - at);
  }
  learnGap(pieces);
  learnLead(extents);
}

std::optional<SoundLayout> SoundLayout::learn(const Movie& reference, const ByteSource& source) {
  const Track* video = reference.videoTrack();
  const Track* audio = reference.audioTrack();
  const auto pcm = audio != nullptr ? PCMLayout::of(*audio) : std::nullopt;
  if (!pcm || video == nullptr) {
    return std::nullopt;
  }
  const std::vector<Extent> extents = extentsOf(reference, *video, *audio);
  const std::vector<Box> mdats = MovieParser::layout(BoxReader(source)).mdats;
  if (mdats.empty()) {
    return std::nullopt;
  }
  SoundLayoutLearner learner(*pcm);
  learner.learn(extents, mdats.front().payloadOffset(), mdats.back().end());
  return learner.result();
}

bool SoundLayout::isUsualSound(std::uint64_t bytes) const {
  return bytes > 0 && bytes % pcm_.sampleSize == 0 && bytes >= smallestSound_ / 2 &&
         bytes <= largestSound_ + largestSound_ / 2;
}

std::optional<ByteRange> SoundLayout::byKnownTotal(std::uint64_t from, std::uint64_t to) const {
  const auto known = totals_.find(to - from);
  if (known == totals_.end() || !known->second) {
    return std::nullopt;
  }
  const auto [before, sound] = *known->second;
  return ByteRange{from + before, from + before + sound};
}

std::optional<ByteRange> SoundLayout::byPattern(std::uint64_t from, std::uint64_t to) const {
  const std::uint64_t gap = to - from;
  const Pattern* best = nullptr;
  ByteRange found;
  for (const auto& [shape, pattern] : patterns_) {
    for (const auto& [before, behind] : pattern.others) {
      if (before + behind < gap && isUsualSound(gap - before - behind) &&
          (best == nullptr || pattern.count > best->count)) {
        best = &pattern;
        found = {from + before, to - behind};
      }
    }
  }
  return best != nullptr ? std::optional(found) : std::nullopt;
}

// Phones store timed metadata behind the sound: items of a 32-bit size and a small key number
// (QuickTime File Format, Timed Metadata Media), which lead exactly to the next frame.
std::optional<ByteRange> SoundLayout::beforeItems(const ByteSource& source, std::uint64_t from,
                                                  std::uint64_t to) const {
  constexpr std::uint64_t longestTail = std::uint64_t{64} << 10U;
  constexpr std::uint32_t largestKey = 64;
  constexpr std::uint32_t smallestItem = 9;
  const std::uint64_t tailFrom = to - std::min(to - from, longestTail);
  const std::vector<std::uint8_t> tail =
      source.read(tailFrom, static_cast<std::size_t>(to - tailFrom));
  // leads[i]: items starting at i lead exactly to the end.
  std::vector<bool> leads(tail.size() + 1, false);
  leads[tail.size()] = true;
  std::optional<std::uint64_t> earliest;
  for (std::size_t i = tail.size(); i-- > 0;) {
    if (tail.size() - i < smallestItem) {
      continue;
    }
    const auto size = bigEndian<std::uint32_t>(tail, i);
    const auto key = bigEndian<std::uint32_t>(tail, i + 4);
    leads[i] = size >= smallestItem && size <= tail.size() - i && key > 0 && key <= largestKey &&
               leads[i + size];
    const std::uint64_t at = tailFrom + i;
    if (leads[i] && isUsualSound(at - from)) {
      earliest = at;
    }
  }
  return earliest ? std::optional(ByteRange{from, *earliest}) : std::nullopt;
}

ByteRange SoundLayout::soundIn(const ByteSource& source, std::uint64_t from,
                               std::uint64_t to) const {
  if (to <= from) {
    return {from, from};
  }
  if (const auto sound = byKnownTotal(from, to)) {
    return *sound;
  }
  if (const auto sound = byPattern(from, to)) {
    return *sound;
  }
  const bool hasOtherTracks =
      std::any_of(patterns_.begin(), patterns_.end(),
                  [](const auto& entry) { return entry.first.find('O') != std::string::npos; });
  if (hasOtherTracks && to - from <= largestSound_ * 2) {
    if (const auto sound = beforeItems(source, from, to)) {
      return *sound;
    }
  }
  return {from, from};
}

}  // namespace tallowmark
