// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/OtherTracks.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace tallowmark::VideoRepair {

namespace {

using Trust = FrameFinder::Trust;

// Bits.
constexpr double enoughForOther = 12;
constexpr double clearly = 40;
constexpr double clearlyFitting = 20;
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
      isSound_(std::move(isSound)) {
  turn_.end = from;
  for (const StreamEvidence& other : lessons.otherTracks) {
    finders_.push_back(std::make_unique<FrameFinder>(source, end_, other, lessons.maxFrameSize));
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

// What the reference's tracks show may have looked the other way round: unless its sizes clearly
// fit the clip's pictures, as far as it is known whose they are, the clip's own are gone by.
std::pair<const PictureSizes*, const PictureSizes*> OtherTracks::sizesToGoBy() const {
  const double enough = referenceFits_ < -clearlyFitting ? fewOfClip : enoughOfClip;
  const bool isLearnt = clipOurs_.count() >= enough && clipTheirs_.count() >= enough;
  return isLearnt && referenceFits_ < clearlyFitting
             ? std::pair(&clipOurs_, &clipTheirs_)
             : std::pair(&evidence_.sizes(), &lessons_.otherTracks.front().sizes());
}

void OtherTracks::learnSize(const FoundFrame& frame, bool isOther) {
  if (!turn_.row || finders_.empty()) {
    return;
  }
  (isOther ? clipTheirs_ : clipOurs_).add(frame.slice, frame.size);
  const double oursRather = evidence_.sizes().bits(frame.slice, frame.size) -
                            lessons_.otherTracks.front().sizes().bits(frame.slice, frame.size);
  referenceFits_ += isOther ? -oursRather : oursRather;
}

// Bits in favour of a frame as the other's, by sizes. Not asked everywhere: that would be to look
// at all pictures many times.
double OtherTracks::sizeBitsForOther(const FoundFrame& frame) {
  constexpr std::uint64_t atFirst = 64;
  constexpr std::uint64_t share = 8;
  if (compared_ && compared_->first == frame.offset) {
    return compared_->second;
  }
  if (comparisons_ > atFirst + pictures_ / share) {
    return 0;
  }
  ++comparisons_;
  compared_ = {frame.offset, comparedSizes(frame)};
  return compared_->second;
}

// Where two tracks take turns in rows of as many frames: the sizes of the frames from this one on,
// wherever in a row it may stand.
double OtherTracks::comparedSizes(const FoundFrame& frame) {
  constexpr std::size_t mostLookedAt = 64;
  const auto& [usual, others] = sizesToGoBy();
  std::vector<double> oursRather;
  std::optional<FoundFrame> next = frame;
  for (; oursRather.size() < mostLookedAt && next; next = inTurnBehind(next->end())) {
    const auto foreign = at(next->offset);
    if (!foreign) {
      break;
    }
    oursRather.push_back(usual->bits(next->slice, next->size) -
                         others->bits(foreign->slice, foreign->size));
  }
  const auto& [ours, theirs] = *lessons_.turns.rows;
  std::array<double, 2> best;
  best.fill(std::numeric_limits<double>::lowest());
  for (std::uint64_t ahead = 0; ahead < ours + theirs; ++ahead) {
    double bits = 0;
    for (std::size_t i = 0; i < oursRather.size(); ++i) {
      bits += (ahead + i) % (ours + theirs) < ours ? oursRather[i] : -oursRather[i];
    }
    double& side = best.at(ahead < ours ? 0 : 1);
    side = std::max(side, bits);
  }
  return best.back() - best.front();
}

// Whether sizes tell clearly that it is the other way round; asked now and then, so that one
// mistake does not swap the tracks for good.
bool OtherTracks::contradictsSizes(const FoundFrame& frame, bool isOther) {
  constexpr std::uint64_t pause = 32;
  if (!lessons_.turns.rows || turn_.unasked < pause || clipTheirs_.count() < enoughOfClip) {
    return false;
  }
  turn_.unasked = 0;
  const double bits = sizeBitsForOther(frame);
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
  if (const auto& gaps = lessons_.turns.gaps; !gaps.empty()) {
    return std::find(gaps.begin(), gaps.end(), gap.length()) != gaps.end();
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
// behind a loss sizes tell.
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
  if (told && contradictsSizes(frame, *told)) {
    turn_.forget();
    return !*told;
  }
  if (told || !lessons_.turns.rows) {
    return told.value_or(isLed);
  }
  return sizeBitsForOther(frame) > 0;
}

void OtherTracks::take(const FoundFrame& frame) {
  ++pictures_;
  turn_.take(frame, isLedTo(frame));
  learnSize(frame, false);
  lastOurs_ = frame;
}

void OtherTracks::pass(const FoundFrame& foreign) {
  ++pictures_;
  turn_.pass(foreign, isLedTo(foreign));
  learnSize(foreign, true);
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
