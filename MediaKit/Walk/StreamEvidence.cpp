// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/StreamEvidence.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>

#include "MediaKit/Bitstream/EmulationRule.h"
#include "MediaKit/Bitstream/UnitHead.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaWindow.h"

namespace tallowmark {

namespace {

bool haveSameNumbers(const SliceHeader& a, const SliceHeader& b) {
  return a.resetsOrder == b.resetsOrder && a.frameNumber == b.frameNumber && a.order == b.order &&
         a.isBottomField == b.isBottomField;
}

constexpr std::uint64_t samplesToLearnFrom = 3000;
constexpr std::uint64_t bytesToCheckForEmulation = std::uint64_t{48} << 20U;
constexpr std::uint64_t mostFirstPictures = 300;
/// Holes have edges that tear units.
constexpr std::uint64_t mostTornUnits = 4;
constexpr std::size_t mostHabits = 128;
constexpr std::size_t mostFollowers = 6;
constexpr std::size_t mostCommonGaps = 24;

// Distance of two low-bit counters on their circle.
std::uint32_t circularDistance(std::uint32_t a, std::uint32_t b, unsigned bits) {
  const std::uint32_t mask = bits >= 32 ? ~0U : (1U << bits) - 1;
  const std::uint32_t forward = (b - a) & mask;
  return std::min(forward, (a - b) & mask);
}

}  // namespace

/// Gathers what one sample after the other shows.
class EvidenceLearner {
 public:
  EvidenceLearner(const ByteSource& source, const NALFormat& format, const Track& track)
      : source_(source),
        format_(format),
        window_(source, source.size(), {512, std::size_t{4} << 10U}),
        units_(source, source.size(), {std::size_t{4} << 10U, std::size_t{256} << 10U}) {
    evidence_.format_ = format;
    evidence_.sets_ = ParameterSets::of(track.sampleEntry, format.codec);
    evidence_.fewestSlices_ = std::numeric_limits<unsigned>::max();
  }

  void lookAt(const Sample& sample, std::optional<std::uint64_t> nextFrame);
  /// The next sample does not follow the last one.
  void skip() { previous_.reset(); }
  std::optional<StreamEvidence> result();

 private:
  struct Shape {
    std::vector<UnitHead> units;
    std::size_t firstSlice = 0;
    std::size_t lastSlice = 0;
    unsigned pictures = 0;
  };

  std::optional<Shape> shapeOf(const Sample& sample);
  void learnSlice(const UnitHead& head, UnitHabit& habit, bool first);
  void learnRoles(const Shape& shape);
  void learnKeys(const Shape& shape, bool isSync);
  void learnSurroundings(const Sample& sample, std::optional<std::uint64_t> nextFrame);
  bool holdsForbidden(std::uint64_t from, std::uint64_t to);
  void learnEmulation(const Shape& shape);
  void assumeOtherSlices();
  UnitHabit* habitFor(std::uint16_t header);
  int typeOf(std::uint16_t header) const {
    return format_.codec == NALFormat::Codec::h264 ? header & 31 : (header >> 9) & 63;
  }

  const ByteSource& source_;
  const NALFormat& format_;
  MediaWindow window_;
  MediaWindow units_;
  StreamEvidence evidence_;
  std::uint64_t framed_ = 0;
  std::uint64_t looked_ = 0;
  std::uint64_t fieldPairs_ = 0;
  std::uint64_t emulationChecked_ = 0;
  std::uint64_t emulationBroken_ = 0;
  std::optional<SliceHeader> previous_;
  std::vector<std::pair<SliceHeader, SliceHeader>> pairs_;
  std::map<std::uint16_t, std::uint64_t> closings_;
  std::map<std::uint32_t, std::uint64_t> followers_;
  std::map<std::uint64_t, std::uint64_t> gaps_;
};

// Null for one kind more than any camera writes: each unit is looked up among all of them.
UnitHabit* EvidenceLearner::habitFor(std::uint16_t header) {
  for (UnitHabit& habit : evidence_.habits_) {
    if (habit.header == header) return &habit;
  }
  if (evidence_.habits_.size() == mostHabits) {
    return nullptr;
  }
  evidence_.habits_.push_back({.header = header});
  return &evidence_.habits_.back();
}

// The units of a sample, if their lengths lead exactly to its end and it holds a picture.
std::optional<EvidenceLearner::Shape> EvidenceLearner::shapeOf(const Sample& sample) {
  Shape shape;
  const std::uint64_t end = sample.offset + sample.size;
  bool sliceSeen = false;
  for (std::uint64_t at = sample.offset; at < end;) {
    const auto head = readUnitHead(window_, at, end, format_);
    if (!head || shape.units.size() > 1000) {
      return std::nullopt;
    }
    const auto described = format_.describe(head->header, head->afterHeader());
    if (described && described->isVCL) {
      shape.firstSlice = sliceSeen ? shape.firstSlice : shape.units.size();
      shape.lastSlice = shape.units.size();
      shape.pictures += described->firstInPicture ? 1U : 0U;
      sliceSeen = true;
    }
    shape.units.push_back(*head);
    at += head->length;
  }
  return sliceSeen ? std::optional(std::move(shape)) : std::nullopt;
}

void EvidenceLearner::learnSlice(const UnitHead& head, UnitHabit& habit, bool first) {
  habit.isSlice = true;
  const auto slice = readSliceHeader(head.bytes(), evidence_.sets_, format_.codec);
  if (!slice) {
    if (first) previous_.reset();
    return;
  }
  ++(slice->firstInPicture ? habit.firstSlices
                           : habit.laterSlices)[{slice->type, slice->pictureSet}];
  if (!first) {
    return;
  }
  const SequenceParameters* sps = evidence_.sets_.sequenceOf(slice->pictureSet);
  if (previous_ && previous_->order && slice->order && !slice->resetsOrder && sps != nullptr) {
    evidence_.largestOrderStep_ =
        std::max(evidence_.largestOrderStep_,
                 circularDistance(*previous_->order, *slice->order, sps->orderBits));
  }
  if (previous_) {
    pairs_.emplace_back(*previous_, *slice);
  }
  previous_ = slice;
}

void EvidenceLearner::learnRoles(const Shape& shape) {
  unsigned slices = 0;
  for (std::size_t i = 0; i < shape.units.size(); ++i) {
    const UnitHead& head = shape.units[i];
    if (format_.codec == NALFormat::Codec::h264 ? head.type() == 7 || head.type() == 8
                                                : head.type() == 33 || head.type() == 34) {
      const std::vector<std::uint8_t> set =
          source_.read(head.at + format_.lengthSize,
                       std::min<std::size_t>(head.length - format_.lengthSize, 4096));
      evidence_.sets_.add(set, format_.codec);
    }
    UnitHabit* const known = habitFor(head.header);
    if (known == nullptr) {
      continue;
    }
    UnitHabit& habit = *known;
    const auto bodySize = static_cast<std::uint32_t>(head.length - format_.lengthSize);
    habit.smallest = std::min(habit.smallest, bodySize);
    habit.largest = std::max(habit.largest, bodySize);
    const auto described = format_.describe(head.header, head.afterHeader());
    if (described && described->isVCL) {
      learnSlice(head, habit, i == shape.firstSlice);
      ++slices;
    }
    habit.starts = habit.starts || i == 0;
    habit.leads = habit.leads || i < shape.firstSlice;
    habit.between = habit.between || (i > shape.firstSlice && i < shape.lastSlice);
    habit.trails = habit.trails || i > shape.lastSlice;
  }
  evidence_.fewestSlices_ = std::min(evidence_.fewestSlices_, slices);
  fieldPairs_ += shape.pictures == 2 ? 1 : 0;
  if (shape.lastSlice + 1 < shape.units.size()) {
    ++closings_[shape.units.back().header];
  }
}

void EvidenceLearner::learnKeys(const Shape& shape, bool isSync) {
  KeyHabits::Picture picture;
  for (const UnitHead& head : shape.units) {
    const auto described = format_.describe(head.header, head.afterHeader());
    picture.resetsDecoding = picture.resetsDecoding || (described && described->isKeyframe);
    picture.recovers = picture.recovers || tellsRecovery(head, format_.codec);
  }
  picture.isIntra = previous_ && isIntra(*previous_);
  evidence_.keys_.learn(picture, isSync);
}

// Piece by piece: a unit can claim gigabytes.
bool EvidenceLearner::holdsForbidden(std::uint64_t from, std::uint64_t to) {
  constexpr std::size_t stretch = 3;
  while (from + stretch <= to) {
    const auto held = units_.at(from, stretch);
    if (held.size() < stretch) {
      break;
    }
    const auto piece =
        held.first(static_cast<std::size_t>(std::min<std::uint64_t>(held.size(), to - from)));
    if (findForbiddenStretch(piece)) {
      return true;
    }
    from += piece.size() - (stretch - 1);
  }
  return false;
}

void EvidenceLearner::learnEmulation(const Shape& shape) {
  for (const UnitHead& head : shape.units) {
    if (emulationBroken_ > mostTornUnits || emulationChecked_ > bytesToCheckForEmulation) {
      return;
    }
    const std::uint64_t from = head.at + format_.lengthSize;
    const std::uint64_t length =
        std::min(head.length - format_.lengthSize, bytesToCheckForEmulation);
    emulationChecked_ += length;
    emulationBroken_ += holdsForbidden(from, from + length) ? 1U : 0U;
  }
}

void EvidenceLearner::learnSurroundings(const Sample& sample,
                                        std::optional<std::uint64_t> nextFrame) {
  const std::uint64_t end = sample.offset + sample.size;
  if (nextFrame == end) {
    return;
  }
  if (nextFrame && *nextFrame > end) {
    ++gaps_[*nextFrame - end];
  }
  const auto behind = window_.at(end, 4);
  if (behind.size() >= 4) {
    ++followers_[bigEndian<std::uint32_t>(behind, 0)];
  }
}

void EvidenceLearner::lookAt(const Sample& sample, std::optional<std::uint64_t> nextFrame) {
  ++looked_;
  if (const auto shape = shapeOf(sample)) {
    ++framed_;
    learnRoles(*shape);
    learnKeys(*shape, sample.isSync);
    learnEmulation(*shape);
    if (previous_) {
      evidence_.sizes_.add(*previous_, sample.size);
      if (looked_ <= mostFirstPictures) {
        evidence_.firstPictures_.push_back({sample.offset, *previous_});
      }
    }
    learnSurroundings(sample, nextFrame);
  } else {
    skip();
  }
}

// A short reference lacks kinds of frames that the damaged clip has: slices of every type cameras
// write are expected where its own slices stand.
void EvidenceLearner::assumeOtherSlices() {
  const int delimiter = format_.codec == NALFormat::Codec::h264 ? 9 : 35;
  const bool delimited = std::any_of(
      evidence_.habits_.begin(), evidence_.habits_.end(),
      [&](const UnitHabit& habit) { return habit.starts && typeOf(habit.header) == delimiter; });
  evidence_.hasDelimiters_ = delimited;
  UnitHabit assumed{.starts = !delimited, .isSlice = true, .isAssumed = true, .smallest = 2};
  for (UnitHabit& habit : evidence_.habits_) {
    if (habit.isSlice) {
      // Messages and parameter sets ahead of a slice come and go; delimiters stay.
      habit.starts = habit.starts || !delimited;
      assumed.largest = std::max(assumed.largest, habit.largest);
    }
  }
  const auto assume = [&](unsigned header) {
    if (evidence_.habit(static_cast<std::uint16_t>(header)) == nullptr) {
      assumed.header = static_cast<std::uint16_t>(header);
      evidence_.habits_.push_back(assumed);
    }
  };
  if (format_.codec == NALFormat::Codec::h264) {
    for (const unsigned importance : {0x00U, 0x20U, 0x40U, 0x60U}) {
      assume(importance | 1U);
      if (importance != 0) assume(importance | 5U);
    }
    return;
  }
  constexpr unsigned temporalLayers = 3;
  for (const unsigned type : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 19U, 20U, 21U}) {
    for (unsigned layer = 1; layer <= temporalLayers; ++layer) {
      assume((type << 9U) | layer);
    }
  }
}

std::optional<StreamEvidence> EvidenceLearner::result() {
  // A reference may have holes of its own.
  if (framed_ == 0 || framed_ * 2 < looked_) {
    return std::nullopt;
  }
  evidence_.breaksEmulationRule_ = emulationBroken_ > std::min(mostTornUnits, framed_ / 4);
  assumeOtherSlices();
  evidence_.fieldPairs_ = fieldPairs_ * 2 > framed_;
  for (const auto& [header, count] : closings_) {
    if (count == framed_) evidence_.closingHeader_ = header;
  }
  const auto contradicted = std::count_if(pairs_.begin(), pairs_.end(), [&](const auto& pair) {
    return evidence_.successionBits(pair.first, pair.second) < 0;
  });
  evidence_.countsReliably_ = pairs_.size() >= 8 && contradicted == 0;
  evidence_.neverRepeats_ = std::none_of(pairs_.begin(), pairs_.end(), [](const auto& pair) {
    return haveSameNumbers(pair.first, pair.second);
  });
  std::uint64_t total = 0;
  for (const auto& [bytes, count] : followers_) {
    total += count;
    evidence_.followers_.push_back(bytes);
  }
  std::set<std::uint8_t> firsts;
  for (const std::uint32_t bytes : evidence_.followers_) {
    firsts.insert(static_cast<std::uint8_t>(bytes >> 24U));
  }
  if (total >= 24 && firsts.size() <= 4) {
    evidence_.firstFollowers_ = std::move(firsts);
  }
  evidence_.followersAreComplete_ = total >= 8 && followers_.size() <= mostFollowers;
  constexpr std::uint64_t often = 4;
  for (const auto& [gap, count] : gaps_) {
    evidence_.commonGaps_.push_back(gap);
    if (count >= often && count * 20 >= framed_) {
      evidence_.usualGaps_.push_back(gap);
    }
  }
  evidence_.isShort_ = framed_ < 12;
  evidence_.gapsAreComplete_ = gaps_.size() <= mostCommonGaps;
  if (!gaps_.empty()) {
    evidence_.smallestGap_ = gaps_.begin()->first;
    evidence_.largestGap_ = gaps_.rbegin()->first;
  }
  return std::move(evidence_);
}

namespace {

// Whether the first picture is a single unit that wraps its slice.
bool wrapsSlices(const Track& track, const ByteSource& source, NALFormat format) {
  if (format.codec != NALFormat::Codec::h264 || track.samples.empty()) {
    return false;
  }
  constexpr int prefixUnit = 14;
  const Sample first = track.samples.front();
  MediaWindow window(source, source.size(), {512, std::size_t{4} << 10U});
  const auto plain = readUnitHead(window, first.offset, first.offset + first.size, format);
  format.wrapsSlices = true;
  const auto opened = readUnitHead(window, first.offset, first.offset + first.size, format);
  return plain && plain->type() == prefixUnit && plain->length == first.size && opened &&
         opened->type() != prefixUnit;
}

}  // namespace

std::optional<StreamEvidence> StreamEvidence::learn(const Track& track, const ByteSource& source,
                                                    const NALFormat& standard) {
  NALFormat format = standard;
  format.wrapsSlices = wrapsSlices(track, source, standard);
  EvidenceLearner learner(source, format, track);
  const std::uint64_t count = track.samples.size();
  // The first thousand in a row, then evenly spread ones: rare kinds of frames come late.
  const std::uint64_t inARow = std::min<std::uint64_t>(count, samplesToLearnFrom / 3);
  const std::uint64_t stride =
      std::max<std::uint64_t>(1, (count - inARow) / (samplesToLearnFrom - inARow + 1));
  for (std::uint64_t i = 0; i < count; i += i < inARow ? 1 : stride) {
    const Sample sample = track.samples[i];
    const auto next = i + 1 < count ? std::optional(track.samples[i + 1].offset) : std::nullopt;
    if (sample.size > 0 && sample.offset + sample.size <= source.size()) {
      learner.lookAt(sample, next);
    }
    if (i >= inARow) {
      learner.skip();
    }
  }
  return learner.result();
}

const UnitHabit* StreamEvidence::habit(std::uint16_t header) const {
  for (const UnitHabit& habit : habits_) {
    if (habit.header == header) return &habit;
  }
  return nullptr;
}

void StreamEvidence::adoptSets(const StreamEvidence& own) {
  sets_ = own.sets_;
  largestOrderStep_ = std::max(largestOrderStep_, own.largestOrderStep_);
  countsReliably_ = countsReliably_ && own.countsReliably_;
}

bool StreamEvidence::expectsParameterSets() const {
  const bool isH264 = format_.codec == NALFormat::Codec::h264;
  return std::any_of(habits_.begin(), habits_.end(), [&](const UnitHabit& habit) {
    return isH264 ? (habit.header & 31) == 7 : habit.header >> 9 == 33;
  });
}

void StreamEvidence::goBy(const ParameterSets& sets) {
  sets_ = sets;
  countsReliably_ = false;
}

bool StreamEvidence::adoptSlices(const StreamEvidence& own) {
  // Pictures of other clips that were taken for this one's are few.
  constexpr std::uint64_t leastShare = 20;
  constexpr std::uint64_t several = 2;
  std::uint64_t pictures = 0;
  for (const UnitHabit& habit : own.habits_) {
    for (const auto& [kind, count] : habit.firstSlices) pictures += count;
  }
  bool isAnyNew = false;
  for (UnitHabit& habit : habits_) {
    const UnitHabit* found = own.habit(habit.header);
    if (found == nullptr || !found->isSlice || found->isAssumed) {
      continue;
    }
    for (const auto& [kind, count] : found->firstSlices) {
      if (count < several || count < pictures / leastShare || habit.firstSlices.contains(kind)) {
        continue;
      }
      isAnyNew = true;
      habit.isAssumed = false;
      habit.smallest = std::min(habit.smallest, found->smallest);
      habit.largest = std::max(habit.largest, found->largest);
      habit.firstSlices[kind] = count;
      habit.laterSlices.insert(found->laterSlices.begin(), found->laterSlices.end());
    }
  }
  return isAnyNew;
}

bool StreamEvidence::adoptGaps(const StreamEvidence& own) {
  bool isAnyNew = false;
  for (const std::uint64_t gap : own.usualGaps_) {
    if (gap > 0 && gapBits(gap) == 0) {
      adoptedGaps_.insert(gap);
      largestGap_ = std::max(largestGap_, gap);
      isAnyNew = true;
    }
  }
  return isAnyNew;
}

void StreamEvidence::forgetGaps() {
  followers_.clear();
  firstFollowers_.clear();
  followersAreComplete_ = false;
  commonGaps_.clear();
  usualGaps_.clear();
  gapsAreComplete_ = false;
  smallestGap_ = 0;
  largestGap_ = 0;
}

void StreamEvidence::allowOtherFraming() {
  const auto allow = [&](unsigned header, std::uint32_t smallest, std::uint32_t largest) {
    const auto known = std::find_if(habits_.begin(), habits_.end(),
                                    [&](const UnitHabit& habit) { return habit.header == header; });
    UnitHabit& allowed =
        known != habits_.end()
            ? *known
            : habits_.emplace_back(UnitHabit{.header = static_cast<std::uint16_t>(header)});
    allowed.starts = allowed.leads = true;
    allowed.smallest = std::min(allowed.smallest, smallest);
    allowed.largest = std::max(allowed.largest, largest);
  };
  for (UnitHabit& habit : habits_) {
    habit.starts = habit.starts || habit.leads || habit.isSlice;
  }
  constexpr std::uint32_t longestSet = 64;
  constexpr std::uint32_t longestMessage = 256;
  if (format_.codec == NALFormat::Codec::h264) {
    allow(0x09, 2, 2);
    allow(0x06, 4, longestMessage);
    for (const unsigned importance : {0x20U, 0x40U, 0x60U}) {
      allow(importance | 7U, 4, longestSet);
      allow(importance | 8U, 3, longestSet);
    }
  } else {
    allow(35U << 9U | 1U, 3, 3);
    allow(39U << 9U | 1U, 4, longestMessage);
    for (const unsigned set : {32U, 33U, 34U}) allow(set << 9U | 1U, 4, longestSet);
  }
  hasDelimiters_ = true;
  closingHeader_.reset();
}

double StreamEvidence::followerBits(std::span<const std::uint8_t> bytes) const {
  constexpr double unusual = -8;
  if (bytes.size() < 4) {
    return 0;
  }
  if (!followersAreComplete_) {
    // Compressed sound opens with few different bytes: element, window and table numbers.
    const auto kinds = static_cast<double>(firstFollowers_.size());
    return firstFollowers_.empty()              ? 0
           : firstFollowers_.contains(bytes[0]) ? 8 - std::log2(kinds)
                                                : unusual / 2;
  }
  const auto first = bigEndian<std::uint32_t>(bytes, 0);
  const bool known = std::binary_search(followers_.begin(), followers_.end(), first);
  return known ? 32 - std::log2(static_cast<double>(followers_.size())) : unusual;
}

double StreamEvidence::gapBits(std::uint64_t gap) const {
  // Other data would put a frame start anywhere within the usual distance of two frames.
  constexpr double anywhere = 17;
  constexpr std::uint64_t longestUnknownGap = std::uint64_t{64} << 10U;
  if (adoptedGaps_.contains(gap)) {
    return anywhere - std::log2(static_cast<double>(adoptedGaps_.size()) + 1);
  }
  if (gapsAreComplete_ && std::binary_search(commonGaps_.begin(), commonGaps_.end(), gap)) {
    return anywhere - std::log2(static_cast<double>(commonGaps_.size()) + 1);
  }
  // A single frame shows no gaps; then short ones are as likely as any.
  const bool unknown = commonGaps_.empty() && isShort_;
  const std::uint64_t least = unknown ? 1 : smallestGap_ / 2;
  const std::uint64_t most = unknown ? longestUnknownGap : largestGap_ * 2;
  if (gap < least || gap > most || (commonGaps_.empty() && !unknown)) {
    return 0;
  }
  return std::max(0.0, anywhere - std::log2(static_cast<double>(most - least + 1)));
}

bool StreamEvidence::isUsualGap(std::uint64_t gap) const {
  return gap >= smallestGap_ / 2 && gap <= largestGap_ + largestGap_ / 4;
}

bool StreamEvidence::isRepeated(const SliceHeader& before, const SliceHeader& slice) const {
  return neverRepeats_ && haveSameNumbers(before, slice);
}

double StreamEvidence::successionBits(const SliceHeader& before, const SliceHeader& slice) const {
  constexpr double against = -6;
  const SequenceParameters* sps = sets_.sequenceOf(slice.pictureSet);
  if (sps == nullptr || slice.resetsOrder) {
    return 0;
  }
  double bits = 0;
  if (format_.codec == NALFormat::Codec::h264 && sps->frameNumBits > 0) {
    // §7.4.3: counts on from every reference picture.
    const std::uint32_t mask = (1U << sps->frameNumBits) - 1;
    const std::uint32_t step = (slice.frameNumber - before.frameNumber) & mask;
    bits += step <= 1 ? sps->frameNumBits - 1.0 : against;
  }
  if (before.order && slice.order && sps->orderBits > 0) {
    const std::uint32_t window = std::max(largestOrderStep_ * 2, 16U);
    const double range = std::exp2(sps->orderBits);
    const double share = std::min(1.0, (2.0 * window + 1) / range);
    const bool near = circularDistance(*before.order, *slice.order, sps->orderBits) <= window;
    bits += near ? -std::log2(share) : against;
  }
  return bits;
}

}  // namespace tallowmark
