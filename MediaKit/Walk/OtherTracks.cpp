// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/OtherTracks.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

namespace tallowmark::VideoRepair {

namespace {

using Trust = FrameFinder::Trust;

// Bits.
constexpr double enoughForOther = 12;
constexpr double clearly = 40;
constexpr double clearlyFitting = 20;
constexpr double fewContradictions = 20;
// Pictures.
constexpr double enoughOfClip = 12;
constexpr double fewOfClip = 4;
// A second of stereo at 96 kHz in 24 bits is less; whatever a reference claims, no more is read for
// one picture.
constexpr std::uint64_t mostSound = std::uint64_t{1} << 20U;
// Stretches of compressed sound between two pictures are shorter.
constexpr std::uint64_t soundBetween = std::uint64_t{8} << 10U;

}  // namespace

OtherTracks::OtherTracks(const ByteSource& source, std::uint64_t from, const WalkLessons& lessons,
                         FrameFinder& ours, std::function<bool(const ByteRange&)> isSound)
    : end_(source.size()),
      lessons_(lessons),
      evidence_(*lessons.evidence),
      ours_(ours),
      isSound_(std::move(isSound)),
      clipNumbers_(lessons.turns.sharedRow(), evidence_),
      referenceNumbers_(lessons.turns.sharedRow(), evidence_) {
  turn_.end = from;
  for (const StreamEvidence& other : lessons.otherTracks) {
    finders_.push_back(std::make_unique<FrameFinder>(source, end_, other, lessons.maxFrameSize));
  }
  learnReferenceNumbers();
}

// In the order of the reference's file, as far as both tracks' pictures are known.
void OtherTracks::learnReferenceNumbers() {
  if (finders_.empty()) {
    return;
  }
  const auto& ours = evidence_.firstPictures();
  const auto& theirs = lessons_.otherTracks.front().firstPictures();
  for (auto own = ours.begin(), other = theirs.begin();
       own != ours.end() && other != theirs.end();) {
    const bool isOther = other->offset < own->offset;
    referenceNumbers_.add(isOther ? (other++)->slice : (own++)->slice, isOther);
  }
}

std::optional<FoundFrame> OtherTracks::at(std::uint64_t at) {
  for (const auto& finder : finders_) {
    if (auto frame = finder->frameAt(at, Trust::learntOnly);
        frame && frame->bits >= enoughForOther) {
      return frame;
    }
  }
  return std::nullopt;
}

// The frame, of this track or another's, behind one that ends at `end`.
std::optional<FoundFrame> OtherTracks::inTurnBehind(std::uint64_t end) {
  auto frame = ours_.maybeFrameAt(end);
  for (const std::uint64_t gap : lessons_.turns.gaps) {
    if (frame) break;
    frame = ours_.maybeFrameAt(end + gap);
  }
  if (!frame && lessons_.blocks != nullptr) {
    frame = ours_.search(end + 1, std::min(end_, end + soundBetween));
    if (frame && !isSound_({end, frame->offset})) {
      return std::nullopt;
    }
  }
  return frame;
}

// Whether the tracks count against each other as ever behind key pictures, too.
bool OtherTracks::countSteadily() const {
  return clipNumbers_.areProven() ||
         (referenceNumbers_.areProven() && clipNumbers_.agreeWith(referenceNumbers_));
}

// A few pictures of the clip tell less than the reference's, unless they contradict these.
const RowNumbers& OtherTracks::numbersToGoBy() const {
  return countSteadily() && !clipNumbers_.areProven() ? referenceNumbers_ : clipNumbers_;
}

bool OtherTracks::referenceClearlyFits() const {
  return referenceFits_ >= clearlyFitting;
}

bool OtherTracks::clipIsLearnt() const {
  const double enough = referenceFits_ < -clearlyFitting ? fewOfClip : enoughOfClip;
  return clipOurs_.count() >= enough && clipTheirs_.count() >= enough;
}

// What the reference's tracks show may have looked the other way round: unless its sizes clearly
// fit the clip's pictures, as far as it is known whose they are, the clip's own are gone by.
std::pair<const PictureSizes*, const PictureSizes*> OtherTracks::sizesToGoBy() const {
  return clipIsLearnt() && !referenceClearlyFits()
             ? std::pair(&clipOurs_, &clipTheirs_)
             : std::pair(&evidence_.sizes(), &lessons_.otherTracks.front().sizes());
}

void OtherTracks::learn(const FoundFrame& frame, bool isOther) {
  if (!turn_.row || finders_.empty()) {
    clipNumbers_.forget();
    return;
  }
  clipNumbers_.add(frame.slice, isOther);
  (isOther ? clipTheirs_ : clipOurs_).add(frame.slice, frame.size);
  const double oursRather = evidence_.sizes().bits(frame.slice, frame.size) -
                            lessons_.otherTracks.front().sizes().bits(frame.slice, frame.size);
  referenceFits_ += isOther ? -oursRather : oursRather;
}

// Bits in favour of a frame as the other's, by those that follow. Not asked everywhere: that would
// be to look at all pictures many times.
double OtherTracks::rowBitsForOther(const FoundFrame& frame) {
  constexpr std::uint64_t atFirst = 64;
  constexpr std::uint64_t share = 8;
  if (compared_ && compared_->first == frame.offset) {
    return compared_->second;
  }
  if (comparisons_ > atFirst + pictures_ / share) {
    return 0;
  }
  ++comparisons_;
  compared_ = {frame.offset, comparedRows(frame)};
  return compared_->second;
}

// The pictures from this one on that may be of either track, as far as they follow one another.
std::vector<OtherTracks::EitherFrame> OtherTracks::framesFrom(const FoundFrame& frame) {
  constexpr std::size_t mostLookedAt = 64;
  std::vector<EitherFrame> frames;
  std::optional<FoundFrame> next = frame;
  for (; frames.size() < mostLookedAt && next; next = inTurnBehind(next->end())) {
    const auto foreign = at(next->offset);
    if (!foreign) {
      break;
    }
    frames.push_back({*next, *foreign});
  }
  return frames;
}

// Bits in favour of the first frame's standing that far into a row of this track's and one of the
// other's.
OtherTracks::RowBits OtherTracks::bitsOf(const std::vector<EitherFrame>& frames,
                                         std::uint64_t ahead) const {
  const RowNumbers& numbers = numbersToGoBy();
  const auto& [usual, others] = sizesToGoBy();
  const auto& [ours, theirs] = *lessons_.turns.rows;
  RowBits bits;
  std::array<const SliceHeader*, 2> last{};
  bool countAsBefore = true;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const auto& [own, foreign] = frames[i];
    const bool isOther = (ahead + i) % (ours + theirs) >= ours;
    const double oursRather =
        usual->bits(own.slice, own.size) - others->bits(foreign.slice, foreign.size);
    bits.sizes += isOther ? -oursRather : oursRather;
    const SliceHeader& slice = isOther ? foreign.slice : own.slice;
    if (const SliceHeader*& before = last.at(isOther ? 1 : 0); before != nullptr) {
      bits.succession += evidence_.successionBits(*before, slice);
    }
    last.at(isOther ? 1 : 0) = &slice;
    countAsBefore = countAsBefore && (!slice.resetsOrder || countSteadily());
    if (const std::size_t row = numbers.row(); row > 0 && i >= row && countAsBefore) {
      bits.turns += numbers.bits(frames[i - row].ours.slice, own.slice, isOther);
    }
  }
  return bits;
}

// The best there is for these frames' beginning with one of this track's, and with one of the
// other's, wherever in a row it may stand. Numbers and sizes are of no use without succession.
std::array<OtherTracks::RowBits, 2> OtherTracks::bestBits(
    const std::vector<EitherFrame>& frames) const {
  constexpr double none = std::numeric_limits<double>::lowest();
  const auto& [ours, theirs] = *lessons_.turns.rows;
  std::array<RowBits, 2> best{{{none, none, none}, {none, none, none}}};
  for (std::uint64_t ahead = 0; ahead < ours + theirs; ++ahead) {
    const RowBits bits = bitsOf(frames, ahead);
    RowBits& side = best.at(ahead < ours ? 0 : 1);
    side.succession = std::max(side.succession, bits.succession);
    side.turns = std::max(side.turns, bits.succession + bits.turns);
    side.sizes = std::max(side.sizes, bits.succession + bits.sizes);
  }
  return best;
}

// Where two tracks take turns in rows of as many frames: what the frames from this one on say. How
// each track counts tells first, then how they count against each other; but where that changes
// with key pictures sizes come first that are known to be the clip's.
double OtherTracks::comparedRows(const FoundFrame& frame) {
  const auto [asOurs, asTheirs] = bestBits(framesFrom(frame));
  const double succession = asTheirs.succession - asOurs.succession;
  if (std::abs(succession) >= clearly) {
    return succession;
  }
  const double sizes = asTheirs.sizes - asOurs.sizes;
  const double turns = asTheirs.turns - asOurs.turns;
  const RowBits& likelier = turns > 0 ? asTheirs : asOurs;
  const bool countAsEver = likelier.turns > likelier.succession - fewContradictions;
  const bool knowsSizes = clipIsLearnt() || referenceClearlyFits();
  if (!countAsEver || (knowsSizes && !countSteadily())) {
    return sizes;
  }
  return !knowsSizes && std::abs(turns) >= clearly ? turns : turns + sizes / 2;
}

// Whether rows tell clearly that it is the other way round; asked now and then, so that one
// mistake does not swap the tracks for good.
bool OtherTracks::contradictsRows(const FoundFrame& frame, bool isOther) {
  constexpr std::uint64_t pause = 32;
  if (!lessons_.turns.rows || turn_.unasked < pause || clipTheirs_.count() < enoughOfClip) {
    return false;
  }
  turn_.unasked = 0;
  const double bits = rowBitsForOther(frame);
  return isOther ? bits < -clearly : bits > clearly;
}

// Whether nothing is missing between the last picture of either track and this one.
bool OtherTracks::isLedTo(const FoundFrame& frame) {
  if (finders_.empty() || frame.offset == turn_.end) {
    return true;
  }
  const ByteRange gap{turn_.end, frame.offset};
  if (frame.offset < turn_.end || gap.length() > mostSound) {
    return false;
  }
  const auto& gaps = lessons_.turns.gaps;
  const bool isUsual = std::find(gaps.begin(), gaps.end(), gap.length()) != gaps.end();
  // Chunks of compressed sound are of a few sizes in a short reference, and of others here.
  if (isUsual || (!gaps.empty() && lessons_.blocks == nullptr)) {
    return isUsual;
  }
  if (!askedForSound_ || askedForSound_->first != gap) {
    askedForSound_ = {gap, isSound_(gap)};
  }
  return askedForSound_->second;
}

void OtherTracks::Turn::endRow() {
  isRowWhole = true;
  if (row) ++*row;
}

void OtherTracks::Turn::take(const FoundFrame& frame, bool isLed) {
  if (!isLed) forget();
  if (theirs > 0) endRow();
  ours = theirs > 0 ? 1 : ours + 1;
  theirs = 0;
  isOursKnown = true;
  end = frame.end();
  ++unasked;
}

void OtherTracks::Turn::pass(const FoundFrame& foreign, bool isLed) {
  if (!isLed) forget();
  if (ours > 0) endRow();
  theirs = ours > 0 ? 1 : theirs + 1;
  ours = 0;
  lastForeign = foreign;
  end = foreign.end();
  ++unasked;
}

// Whether the next frame is the other track's, where nothing is missing ahead of it. `isOurs`: it
// may be this one's.
std::optional<bool> OtherTracks::turnTellsOther(bool isOurs) const {
  const Turns& usual = lessons_.turns;
  if (turn_.ours + turn_.theirs == 0) {
    return turn_.row ? std::optional(usual.theirsFirst) : std::nullopt;
  }
  if (usual.rows) {
    const bool isOursNow = turn_.ours > 0;
    const bool isAtStart = turn_.row && *turn_.row < usual.firstRows.size();
    const std::uint64_t length = isAtStart   ? usual.firstRows[*turn_.row]
                                 : isOursNow ? usual.rows->ours
                                             : usual.rows->theirs;
    const bool isFull = (isOursNow ? turn_.ours : turn_.theirs) >= length;
    return isFull || turn_.isRowWhole ? std::optional(isOursNow == isFull) : std::nullopt;
  }
  if (isOurs || !turn_.isOursKnown) {
    return usual.mostInARow && turn_.ours >= *usual.mostInARow;
  }
  return std::nullopt;
}

// Whether a frame that could be of this track is another's. It goes on from the last picture of one
// of them and not from the other's; where both count alike and take turns, one's last picture and
// the other's next have the same numbers. Where it may be either's it is whose turn it is, and
// behind a loss those that follow tell.
bool OtherTracks::own(const FoundFrame& frame) {
  const auto other = finders_.empty() ? std::nullopt : at(frame.offset);
  if (!other) {
    return false;
  }
  const auto goesOn = [&](const SliceHeader& before, const SliceHeader& slice) {
    return !evidence_.isRepeated(before, slice) && evidence_.successionBits(before, slice) >= 0;
  };
  const bool isLed = isLedTo(frame);
  const bool isOursKnown = isLed && turn_.isOursKnown;
  const bool isTheirsKnown = isLed && turn_.lastForeign;
  const bool isOurs = !lastOurs_ || goesOn(lastOurs_->slice, frame.slice);
  const bool isTheirs = isTheirsKnown && goesOn(turn_.lastForeign->slice, other->slice);
  if (isOursKnown && isTheirsKnown && isOurs != isTheirs) {
    return isTheirs;
  }
  const auto told = isLed ? turnTellsOther(isOurs) : std::nullopt;
  if (told && contradictsRows(frame, *told)) {
    turn_.forget();
    return !*told;
  }
  if (told || !lessons_.turns.rows) {
    return told.value_or(isLed);
  }
  return rowBitsForOther(frame) > 0;
}

void OtherTracks::take(const FoundFrame& frame) {
  ++pictures_;
  turn_.take(frame, isLedTo(frame));
  learn(frame, false);
  lastOurs_ = frame;
}

void OtherTracks::pass(const FoundFrame& foreign) {
  ++pictures_;
  turn_.pass(foreign, isLedTo(foreign));
  learn(foreign, true);
}

bool OtherTracks::hold(const FoundFrame& candidate) {
  constexpr std::uint64_t longestOpening = 1024;
  const std::uint64_t from = candidate.offset - std::min(candidate.offset, longestOpening);
  return std::any_of(finders_.begin(), finders_.end(), [&](const auto& finder) {
    const auto frame = finder->search(from, candidate.offset);
    return frame && frame->end() == candidate.end();
  });
}

}  // namespace tallowmark::VideoRepair
