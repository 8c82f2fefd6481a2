// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/SoundLayout.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Interleaving/BoxesInMedia.h"
#include "MediaKit/Interleaving/SoundArrivals.h"

namespace tallowmark {

namespace {
// What is damaged in part, or still for a while, is sound all the same.
constexpr double mostly = 0.75;
}  // namespace

class SoundLayoutLearner {
 public:
  SoundLayoutLearner(const Movie& movie, PCMLayout pcm, const BlockLayout* beside)
      : movie_(movie), beside_(beside) {
    layout_.pcm_ = pcm;
    layout_.isAmongBlocks_ = beside != nullptr;
  }

  void learn(const std::vector<Extent>& extents, const ByteRange& media, const ByteSource& source);
  void learnTexture(const Track& audio, const ByteSource& source) {
    layout_.texture_ = SoundTexture::learn(audio, layout_.pcm_, source);
  }
  void learnOrder(std::optional<ChunkOrder> order) { layout_.order_ = std::move(order); }
  SoundLayout result() { return std::move(layout_); }

 private:
  struct Piece {
    bool isSound;
    std::uint64_t bytes;
  };

  bool endsGap(const Track& track) const;
  void learnGap(const std::vector<Piece>& pieces);
  void addUnknown(std::vector<Piece>& pieces, const ByteRange& stretch, BoxesInMedia& boxes);
  static void add(std::vector<Piece>& pieces, bool isSound, std::uint64_t bytes);

  const Movie& movie_;
  const BlockLayout* beside_;
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
  layout_.soundFollowsFrames_ = layout_.soundFollowsFrames_ || shape.starts_with('A');
  layout_.soundPrecedesFrames_ = layout_.soundPrecedesFrames_ || shape.ends_with('A');
  // Cameras have a handful; a reference that has any number must not make every gap a long search.
  constexpr std::size_t mostOthers = 1000;
  if (sound > 0 && pattern.others.size() < mostOthers) {
    pattern.others.emplace(before, total - before - sound);
  }
  // Smaller chunks come between any two pictures, and there their sizes are as many as the gaps'.
  constexpr std::uint64_t leastChunk = std::uint64_t{1} << 14U;
  constexpr std::size_t mostSizes = 4;
  if (sound >= leastChunk && layout_.chunks_.size() < mostSizes) layout_.chunks_.insert(sound);
  if (sound > 0) {
    layout_.smallestSound_ =
        layout_.smallestSound_ == 0 ? sound : std::min(layout_.smallestSound_, sound);
    layout_.largestSound_ = std::max(layout_.largestSound_, sound);
  }
}

// What is of no track; a box in it ends the gap.
void SoundLayoutLearner::addUnknown(std::vector<Piece>& pieces, const ByteRange& stretch,
                                    BoxesInMedia& boxes) {
  std::uint64_t at = stretch.lower;
  const auto endAt = [&](std::uint64_t place) {
    if (place > at) {
      learnGap(pieces);
      pieces.clear();
    }
  };
  for (const ByteRange& part : boxes.outside(stretch)) {
    endAt(part.lower);
    add(pieces, false, part.length());
    at = part.upper;
  }
  endAt(stretch.upper);
}

// Pictures of another track of this codec are passed over as this one's are taken.
bool SoundLayoutLearner::endsGap(const Track& track) const {
  const Track& video = *movie_.videoTrack();
  const bool isPicture = track.kind == Track::Kind::video && track.codec == video.codec;
  return isPicture || &track == &video || (beside_ != nullptr && beside_->isOf(movie_, track));
}

void SoundLayoutLearner::learn(const std::vector<Extent>& extents, const ByteRange& media,
                               const ByteSource& source) {
  const Track& video = *movie_.videoTrack();
  const Track& audio = *movie_.audioTrack();
  BoxesInMedia boxes(source);
  std::vector<Piece> pieces;
  std::vector<double> chunks;
  std::uint64_t at = media.lower;
  for (const Extent& extent : extents) {
    if (extent.track == &audio) chunks.push_back(extent.length);
    if (extent.from < at) {
      continue;  // lies outside the media data, or over another stretch
    }
    if (extent.from > at) addUnknown(pieces, {at, extent.from}, boxes);
    at = extent.to;
    if (endsGap(*extent.track)) {
      learnGap(pieces);
      pieces.clear();
    } else {
      add(pieces, extent.track == &audio, extent.to - extent.from);
    }
  }
  if (media.upper > at) {
    addUnknown(pieces, {at, media.upper}, boxes);
  }
  learnGap(pieces);
  layout_.lead_ = leadOf(extents, video, audio);
  layout_.leadBehindSound_ = leadBehindSound(extents, video, audio);
  if (!chunks.empty()) chunks.erase(chunks.begin());
  layout_.usualChunk_ = usualChunk(std::move(chunks));
  layout_.soundTick_ = 1.0 / std::max(1U, audio.timescale);
  layout_.pictureTick_ = 1.0 / std::max(1U, video.timescale);
}

std::optional<SoundLayout> SoundLayout::learn(const Movie& reference, const ByteSource& source,
                                              const BlockLayout* beside) {
  const Track* video = reference.videoTrack();
  const Track* audio = reference.audioTrack();
  const auto pcm = audio != nullptr ? PCMLayout::ofEvenSamples(*audio) : std::nullopt;
  if (!pcm || video == nullptr) {
    return std::nullopt;
  }
  const std::vector<Box> mdats = MovieParser::layout(BoxReader(source)).mdats;
  if (mdats.empty()) {
    return std::nullopt;
  }
  SoundLayoutLearner learner(reference, *pcm, beside);
  const std::vector<Extent> extents = extentsOf(reference);
  const ByteRange media{mdats.front().payloadOffset(), mdats.back().end()};
  learner.learn(extents, media, source);
  learner.learnOrder(ChunkOrder::learn(extents, media, *video, *audio, source));
  learner.learnTexture(*audio, source);
  return learner.result();
}

// Of a stretch. A block of AAC that was not found must not pass for more.
std::uint64_t SoundLayout::mostSound() const {
  return isAmongBlocks_ ? largestSound_ : largestSound_ + largestSound_ / 2;
}

// Whether so many bytes may be sound that goes on while no picture comes. Any number may be samples
// of one byte: what does not sound must be as long as a chunk, to be told from torn pictures.
bool SoundLayout::mayGoOn(std::uint64_t bytes, Neighbours neighbours) const {
  if (pcm_.sampleSize > 1 || texture_.isTelling()) {
    return !isAmongBlocks_ || bytes <= largestSound_;
  }
  return bytes <= mostSound() && (bytes >= smallestSound_ || neighbours == Neighbours::endOfMedia);
}

bool SoundLayout::isUsualSound(std::uint64_t bytes) const {
  return bytes > 0 && bytes % pcm_.sampleSize == 0 && bytes >= smallestSound_ / 2 &&
         bytes <= mostSound();
}

std::optional<ByteRange> SoundLayout::byKnownTotal(std::uint64_t from, std::uint64_t to) const {
  const auto known = totals_.find(to - from);
  if (known == totals_.end() || !known->second) {
    return std::nullopt;
  }
  const auto [before, sound] = *known->second;
  return ByteRange{from + before, from + before + sound};
}

// How many blocks on the edges of the stretch are as they should be: sound within, none without.
std::size_t SoundLayout::edgesThatFit(const ByteSource& source, const ByteRange& gap,
                                      const ByteRange& sound) const {
  constexpr std::uint64_t blocksLookedAt = 4;
  const std::size_t block = texture_.blockSize();
  const auto sounding = [&](const ByteRange& range, bool fromEnd) {
    std::size_t count = 0;
    const std::uint64_t blocks = std::min<std::uint64_t>(blocksLookedAt, range.length() / block);
    for (std::uint64_t i = 0; i < blocks; ++i) {
      const std::uint64_t at = fromEnd ? range.upper - (i + 1) * block : range.lower + i * block;
      count += texture_.isSound(source.read(at, block)) ? 1U : 0U;
    }
    return std::pair(count, static_cast<std::size_t>(blocks));
  };
  const auto head = sounding(sound, false);
  const auto tail = sounding(sound, true);
  const auto before = sounding({gap.lower, sound.lower}, true);
  const auto behind = sounding({sound.upper, gap.upper}, false);
  return head.first + tail.first + (before.second - before.first) + (behind.second - behind.first);
}

// Where sound may be in a gap with other data, by the reference's gaps: beside as many bytes of
// these, or as long a chunk as one there.
std::vector<SoundLayout::Candidate> SoundLayout::candidates(std::uint64_t from,
                                                            std::uint64_t to) const {
  const std::uint64_t gap = to - from;
  const auto fits = [&](const std::pair<std::uint64_t, std::uint64_t>& others) {
    const std::uint64_t other = others.first + others.second;
    return other < gap && isUsualSound(gap - other);
  };
  std::vector<Candidate> found;
  for (const auto& [shape, pattern] : patterns_) {
    const auto others = std::find_if(pattern.others.begin(), pattern.others.end(), fits);
    if (others != pattern.others.end()) {
      found.push_back({{from + others->first, to - others->second}, true, pattern.count});
    }
  }
  for (const std::uint64_t sound : chunks_) {
    if (sound < gap && patterns_.contains("AO")) found.push_back({{from, from + sound}});
    if (sound < gap && patterns_.contains("OA")) found.push_back({{to - sound, to}});
  }
  return found;
}

// The candidate that sounds, and of several the one that most of the reference's gaps are like.
std::optional<ByteRange> SoundLayout::byPattern(const ByteSource& source, std::uint64_t from,
                                                std::uint64_t to) const {
  const std::vector<Candidate> found = candidates(from, to);
  const Candidate* best = nullptr;
  std::size_t mostEdges = 0;
  for (const Candidate& one : found) {
    const bool isAsked = found.size() > 1 && texture_.isTelling();
    // Another chunk's length alone does not make sound of anything.
    if (!one.isExact && (!isAsked || isMostlyNoSound(source, one.sound))) continue;
    const std::size_t edges = isAsked ? edgesThatFit(source, {from, to}, one.sound) : 0;
    const auto rank = std::tuple(edges, one.isExact, one.count);
    if (best == nullptr || rank > std::tuple(mostEdges, best->isExact, best->count)) {
      best = &one;
      mostEdges = edges;
    }
  }
  return best != nullptr ? std::optional(best->sound) : std::nullopt;
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

// How many of its blocks are like that, 1 for all. Of a long stretch evenly spread blocks tell; one
// can be as long as the clip.
double SoundLayout::shareOf(IsLike isLike, const ByteSource& source, const ByteRange& range) const {
  constexpr std::uint64_t blocksEnough = 8192;
  const std::size_t block = texture_.blockSize();
  const std::uint64_t step =
      std::max<std::uint64_t>(1, range.length() / block / blocksEnough) * block;
  std::uint64_t blocks = 0;
  std::uint64_t alike = 0;
  for (std::uint64_t at = range.lower; at + block <= range.upper; at += step, ++blocks) {
    alike += (texture_.*isLike)(source.read(at, block)) ? 1U : 0U;
  }
  return static_cast<double>(alike) / static_cast<double>(std::max<std::uint64_t>(blocks, 1));
}

bool SoundLayout::isMostly(IsLike isLike, const ByteSource& source, const ByteRange& range) const {
  return !texture_.isTelling() || range.length() < texture_.blockSize() ||
         shareOf(isLike, source, range) >= mostly;
}

bool SoundLayout::isMostlySound(const ByteSource& source, const ByteRange& range) const {
  return isMostly(&SoundTexture::isSound, source, range);
}

bool SoundLayout::isMostlyNoSound(const ByteSource& source, const ByteRange& range) const {
  return texture_.isTelling() && range.length() >= texture_.blockSize() &&
         shareOf(&SoundTexture::isNoSound, source, range) >= mostly;
}

bool SoundLayout::isLike(const ByteSource& source, const ByteRange& gap) const {
  // The mean of fewer samples can be small in noise, too.
  constexpr std::uint64_t fewestSamples = 64;
  const Division division = divide(source, gap.lower, gap.upper, Neighbours::countOn);
  const auto isNoise = [&](const ByteRange& range) {
    const auto size = std::min<std::uint64_t>(range.length(), texture_.blockSize());
    return texture_.isTelling() && size >= fewestSamples * pcm_.sampleSize &&
           texture_.isNoise(source.read(range.lower, static_cast<std::size_t>(size)));
  };
  // Beside other tracks' bytes, or of samples of one byte, there can be any number of bytes.
  const bool sizeTells = pcm_.sampleSize > 1 && !hasOtherTracks();
  return division.isUsual &&
         (sizeTells || std::none_of(division.sound.begin(), division.sound.end(), isNoise));
}

bool SoundLayout::hasOtherTracks() const {
  return std::any_of(patterns_.begin(), patterns_.end(),
                     [](const auto& entry) { return entry.first.find('O') != std::string::npos; });
}

bool SoundLayout::isEdge(const ByteSource& source, std::uint64_t at, bool soundIsBefore) const {
  const std::size_t block = texture_.blockSize();
  if (!texture_.isTelling() || at < block ||
      !(soundIsBefore ? soundPrecedesFrames_ : soundFollowsFrames_)) {
    return false;
  }
  const auto bytes = source.read(at - block, 2 * block);
  if (bytes.size() != 2 * block) {
    return false;
  }
  const auto before = std::span(bytes).first(block);
  const auto behind = std::span(bytes).last(block);
  // Within sound, the side that should not sound settles it.
  return !texture_.isSound(soundIsBefore ? behind : before) &&
         texture_.isSound(soundIsBefore ? before : behind);
}

// The part of a stretch that sounds like sound from its start on. Silence at its end may as well be
// what the damage left; silence will stand there.
ByteRange SoundLayout::soundingStart(const ByteSource& source, const ByteRange& range) const {
  const std::size_t block = texture_.blockSize();
  std::uint64_t end = range.lower;
  for (std::uint64_t at = end; texture_.isTelling() && at + block <= range.upper; at += block) {
    const auto bytes = source.read(at, block);
    if (!texture_.isSound(bytes)) {
      break;
    }
    if (!SoundTexture::isZeros(bytes)) end = at + block;
  }
  return {range.lower, end};
}

// In a damaged gap sound is believed as far as it sounds like sound, on the sides where the
// reference has it: there its first byte is known.
std::vector<ByteRange> SoundLayout::besideFrames(const ByteSource& source, std::uint64_t from,
                                                 std::uint64_t to) const {
  std::vector<ByteRange> found;
  if (!texture_.isTelling()) {
    return found;
  }
  const std::size_t block = texture_.blockSize();
  const std::uint64_t most = mostSound();
  std::uint64_t head = from;
  if (soundFollowsFrames_) {
    head = soundingStart(source, {from, std::min(to, from + most)}).upper;
  }
  std::uint64_t tail = to;
  for (std::uint64_t at = to; soundPrecedesFrames_ && at >= head + block && to - at + block <= most;
       at -= block) {
    const auto bytes = source.read(at - block, block);
    if (!texture_.isSound(bytes)) {
      break;
    }
    if (!SoundTexture::isZeros(bytes)) tail = at - block;
  }
  if (head > from) {
    found.push_back({from, head});
  }
  if (tail < to) {
    found.push_back({tail, to});
  }
  return found;
}

std::vector<SoundLayout::OtherTrack> SoundLayout::others() const {
  std::vector<OtherTrack> tracks;
  for (std::size_t i = 0; order_ && order_->isKnown() && i < order_->tracks().size(); ++i) {
    if (i != order_->kept()) {
      tracks.push_back({order_->tracks()[i], static_cast<std::uint32_t>(order_->sampleSize(i))});
    }
  }
  return tracks;
}

// Each chunk with those of the other tracks in its round, which are as many samples. Where bytes
// may be destroyed, they must sound as the kept track's do.
SoundLayout::Division SoundLayout::divisionOf(const ByteSource& source,
                                              const std::vector<std::vector<ByteRange>>& chunks,
                                              bool isCertain) const {
  Division division{chunks[order_->kept()], {}, true};
  for (std::size_t round = 0; round < division.sound.size(); ++round) {
    auto& others = division.others.emplace_back();
    for (std::size_t track = 0; track < chunks.size(); ++track) {
      if (track == order_->kept()) {
        continue;
      }
      const ByteRange& chunk = chunks[track][round];
      const bool isThere = isCertain || (order_->sampleSize(track) == pcm_.sampleSize &&
                                         isMostlySound(source, chunk));
      others.push_back(isThere ? std::optional(chunk.lower) : std::nullopt);
    }
  }
  return division;
}

// Of a damaged gap what sounds from the first chunk's start on.
SoundLayout::Division SoundLayout::startOf(const ByteSource& source, std::uint64_t from,
                                           std::uint64_t to) const {
  const auto round = order_->firstRound(source, from);
  if (!round) {
    return {};
  }
  const auto sounding = [&](std::size_t track) {
    const ByteRange& chunk = (*round)[track].front();
    return soundingStart(source, {std::min(chunk.lower, to), std::min(chunk.upper, to)});
  };
  const ByteRange start = sounding(order_->kept());
  if (start.length() == 0) {
    return {};
  }
  Division division{{start}, {{}}, false};
  for (std::size_t track = 0; track < round->size(); ++track) {
    if (track != order_->kept()) {
      const bool isThere = order_->sampleSize(track) == pcm_.sampleSize &&
                           sounding(track).length() >= start.length();
      division.others.front().push_back(isThere ? std::optional((*round)[track].front().lower)
                                                : std::nullopt);
    }
  }
  return division;
}

// What another track recorded sounds as this one does: only the places tell.
SoundLayout::Division SoundLayout::byOrder(const ByteSource& source, std::uint64_t from,
                                           std::uint64_t to, Neighbours neighbours) const {
  const bool isCertain = neighbours != Neighbours::unknown;
  const auto undivided = [&] { return Division{{}, {}, false, isMostlySound(source, {from, to})}; };
  if (!order_->isKnown()) {
    return isCertain ? undivided() : Division{};
  }
  const auto follows = neighbours == Neighbours::endOfMedia ? ChunkOrder::Follows::endOfMedia
                                                            : ChunkOrder::Follows::picture;
  const auto chunks = order_->divide(source, from, to, follows);
  if (chunks) {
    const auto& kept = (*chunks)[order_->kept()];
    const bool sounds = std::all_of(kept.begin(), kept.end(), [&](const ByteRange& chunk) {
      return isMostlySound(source, chunk);
    });
    if (isCertain || (order_->areUsual(*chunks) && sounds)) {
      return divisionOf(source, *chunks, isCertain);
    }
  }
  // Between frames that count on nothing is lost: the order is another one there.
  if (isCertain) {
    return undivided();
  }
  return startOf(source, from, to);
}

SoundLayout::Division SoundLayout::divide(const ByteSource& source, std::uint64_t from,
                                          std::uint64_t to, Neighbours neighbours) const {
  if (to <= from) {
    return {};
  }
  if (order_) {
    return byOrder(source, from, to, neighbours);
  }
  std::optional<ByteRange> whole = byKnownTotal(from, to);
  const bool isKnown = whole.has_value();
  if (!whole) {
    whole = byPattern(source, from, to);
  }
  if (!whole && hasOtherTracks() && to - from <= largestSound_ * 2) {
    whole = beforeItems(source, from, to);
  }
  // A camera that pauses its pictures goes on with sound; zeros are destroyed ones rather.
  if (!whole && neighbours != Neighbours::unknown && patterns_.size() == 1 &&
      patterns_.begin()->first == "A" && (to - from) % pcm_.sampleSize == 0 &&
      mayGoOn(to - from, neighbours) && isMostly(&SoundTexture::isHeard, source, {from, to})) {
    whole = ByteRange{from, to};
  }
  // A clip may be louder than its reference: between frames that count on, nothing was destroyed.
  // So it may have been where it is as long as the reference's to the byte, if half of it is sound.
  constexpr double half = 0.5;
  const bool sounds =
      whole && ((isKnown && neighbours != Neighbours::unknown) || isMostlySound(source, *whole) ||
                (isKnown && shareOf(&SoundTexture::isSound, source, *whole) >= half));
  const bool sizeTells = isKnown || pcm_.sampleSize > 1;
  const bool mayBe = whole && (sizeTells || mayGoOn(whole->length(), neighbours));
  if (mayBe && (sounds || (neighbours != Neighbours::unknown && sizeTells))) {
    Division division;
    if (whole->length() > 0) division.sound.push_back(*whole);
    division.isUsual = true;
    division.isDoubtful = !sounds;
    division.isNoSound = !sounds && isMostlyNoSound(source, *whole);
    return division;
  }
  return {besideFrames(source, from, to), {}, false};
}

}  // namespace tallowmark
