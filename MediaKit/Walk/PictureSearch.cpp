// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/PictureSearch.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>
#include <tuple>
#include <utility>

#include "MediaKit/Interleaving/BoxesInMedia.h"
#include "MediaKit/Walk/UnitsAhead.h"

namespace tallowmark::VideoRepair {

namespace {

using Trust = FrameFinder::Trust;

// Bits. A frame where one is due needs to rule out sound and telemetry that happen to read as one;
// a frame found by searching, also that any of the positions passed was one by chance.
constexpr double enoughWhereDue = 12;
constexpr double enoughForUnknownHeader = 18;
constexpr double structuredData = 5;
constexpr double soundEdge = 7;
// Blocks of compressed sound have some hundred bytes: one ends here by chance once in as many, and
// that all of them lead here from the last picture is worth more.
constexpr double endOfSound = 14;
constexpr double enoughWhenFound = 8;
constexpr double beyondDoubt = 40;
constexpr double certain = 28;
constexpr std::uint64_t openingOfFrame = std::uint64_t{16} << 10U;
constexpr double mostFromFollower = 30;
/// Frames lie some 2^17 bytes apart: that one stands right here is worth this much.
constexpr double usualDistance = 17;
constexpr std::uint64_t lookAhead = std::uint64_t{4} << 20U;
constexpr std::uint64_t lookInside = std::uint64_t{64} << 20U;
constexpr std::uint64_t searchStep = std::uint64_t{16} << 20U;
constexpr int mostRivals = 24;
constexpr int mostLooks = 100;
constexpr int mostLinks = 8;
constexpr int enoughInARow = 3;
constexpr std::uint64_t enoughSinceLoss = 50;
constexpr std::size_t mostTorn = 10'000;
constexpr int mostUnknownInARow = 8;

}  // namespace

PictureSearch::PictureSearch(const ByteSource& source, std::uint64_t from,
                             const WalkLessons& lessons, SideCollector& side, Asking asking,
                             const StopToken& stop)
    : source_(source),
      start_(from),
      end_(source.size()),
      lessons_(lessons),
      evidence_(*lessons.evidence),
      side_(side),
      asking_(std::move(asking)),
      stop_(stop),
      finder_(source, end_, *lessons.evidence, lessons.maxFrameSize),
      candidates_(finder_),
      others_(source, from, lessons, finder_, asking_.isSound) {}

std::optional<std::uint64_t> PictureSearch::passForeign(std::uint64_t at) {
  const auto frame = others_.at(at);
  if (!frame) {
    return std::nullopt;
  }
  others_.pass(*frame);
  return frame->end();
}

std::optional<FoundFrame> PictureSearch::due(std::uint64_t at) {
  if (auto frame = finder_.frameAt(at, Trust::learntOnly);
      frame && frame->bits >= enoughWhereDue && (frame->isLearnt || !others_.at(at))) {
    if (others_.own(*frame)) {
      return std::nullopt;
    }
    if (!breaksOff(*frame)) {
      return frame;
    }
  }
  auto frame = last_ ? finder_.frameAt(at, Trust::anyStandard) : std::nullopt;
  if (!frame || others_.at(at)) {
    return std::nullopt;
  }
  // A header that the reference happens to lack: the chain must go on through it.
  double bits = frame->bits + evidence_.successionBits(last_->slice, frame->slice);
  if (const auto next = finder_.maybeFrameAt(frame->end())) {
    bits += std::min(next->bits, mostFromFollower);
  } else {
    bits += std::max(0.0, evidence_.followerBits(finder_.bytesAt(frame->end(), 4)));
  }
  return bits >= enoughForUnknownHeader && !finder_.isContradicted(*frame) ? frame : std::nullopt;
}

// Whether a frame right behind the last one does not count on from it: then one of the two is not
// of this stream.
bool PictureSearch::breaksOff(const FoundFrame& frame) {
  if (!last_ || !evidence_.countsReliably()) {
    return false;
  }
  const bool breaks = evidence_.successionBits(last_->slice, frame.slice) < 0;
  ++links_;
  brokenLinks_ += breaks ? 1 : 0;
  // Where it happens all the time, the clip counts in another way than the reference.
  return breaks && brokenLinks_ <= 4 + links_ / 8;
}

// The first candidate within `reach` bytes behind a frame that none stands right behind. Looks
// there without reading what the frame holds, as long as looks do not make up for most of the
// reading: a stretch full of candidates is gone through once, in order.
std::optional<FoundFrame> PictureSearch::firstBehind(const FoundFrame& frame, std::uint64_t reach) {
  reach = std::min(reach, end_);
  const std::uint64_t from = frame.end() + 1;
  const std::uint64_t to = frame.end() + reach;
  if (lookedBehind_ + reach > lookAhead + (frame.offset - start_) / 2) {
    const FoundFrame* next = candidates_.next(from, to);
    return next != nullptr ? std::optional(*next) : std::nullopt;
  }
  auto next = finder_.search(from, to);
  lookedBehind_ += (next ? next->offset : to) - frame.end();
  return next ? std::optional(likelierWithin(*next, frame)) : std::nullopt;
}

// Lengths begin with zeros, of which sound may end with a few: then a frame seems to begin before
// it does. Of those that begin within the first one's length the one that continues `frame` is
// meant.
FoundFrame PictureSearch::likelierWithin(const FoundFrame& first, const FoundFrame& frame) {
  const auto rank = [&](const FoundFrame& next) {
    const double succession = evidence_.successionBits(frame.slice, next.slice);
    return std::tuple(succession >= 0, next.isLearnt);
  };
  FoundFrame best = first;
  for (std::uint64_t i = 1;
       i < evidence_.format().lengthSize && rank(best) < std::tuple(true, true); ++i) {
    const auto other = finder_.maybeFrameAt(first.offset + i);
    if (other && rank(*other) > rank(best)) best = *other;
  }
  return best;
}

// What stands behind a frame: another one that continues it, or what the reference has there. A
// frame further on proves nothing by being there; that its distance and its counters fit does.
double PictureSearch::follower(const FoundFrame& frame) {
  if (const auto next = finder_.maybeFrameAt(frame.end())) {
    const double succession = evidence_.successionBits(frame.slice, next->slice);
    if (succession < 0 && evidence_.countsReliably()) {
      // Another track's frame speaks for it as its own would; another stream's does not.
      const auto other = others_.at(frame.end());
      return other ? std::min(other->bits, usualDistance) : -mostFromFollower;
    }
    return std::min(next->bits, usualDistance) + succession;
  }
  if (const auto other = others_.at(frame.end())) {
    return std::min(other->bits, usualDistance);
  }
  if (endsMedia(source_, frame.end())) {
    return usualDistance;
  }
  double bits = evidence_.followerBits(finder_.bytesAt(frame.end(), 4));
  const std::uint64_t reach = std::min(lookAhead, evidence_.largestGap() + 1);
  if (const auto next = firstBehind(frame, reach)) {
    const double gap = evidence_.gapBits(next->offset - frame.end());
    bits += gap > 0 ? gap + evidence_.successionBits(frame.slice, next->slice) : 0;
  }
  return bits;
}

// Evidence from the frame itself and from where it was found.
double PictureSearch::scoreByItself(const FoundFrame& frame, std::uint64_t searchedFrom) {
  // Every position passed could have held a false one, and sound or telemetry repeats itself.
  const std::uint64_t passed = frame.offset - searchedFrom;
  double bits = frame.bits - std::log2(static_cast<double>(passed) + 64) - structuredData;
  if (last_) {
    const double gap = evidence_.gapBits(passed);
    const double succession = evidence_.successionBits(last_->slice, frame.slice);
    bits += gap + (gap > 0 ? succession : std::max(0.0, succession));
  }
  return bits;
}

double PictureSearch::edgeBits(const FoundFrame& frame, SoundEdge edge) {
  const bool isBefore = edge == SoundEdge::start;
  const std::uint64_t at = isBefore ? frame.offset : frame.end();
  return lessons_.sound != nullptr && lessons_.sound->isEdge(source_, at, isBefore) ? soundEdge : 0;
}

// Whether `bits` and the edges of sound around the frame are enough. Edges are looked for only
// where they settle it: in sound that reads as frames they cost more than all else.
bool PictureSearch::isEnough(double bits, const FoundFrame& frame, double enough) {
  for (const SoundEdge edge : {SoundEdge::start, SoundEdge::end}) {
    const double possible = edge == SoundEdge::start ? 2 * soundEdge : soundEdge;
    if (bits >= enough || bits + possible < enough) {
      break;
    }
    bits += edgeBits(frame, edge);
  }
  return bits >= enough;
}

double PictureSearch::score(const FoundFrame& frame, std::uint64_t searchedFrom) {
  return scoreByItself(frame, searchedFrom) + edgeBits(frame, SoundEdge::start) +
         edgeBits(frame, SoundEdge::end) + follower(frame);
}

// Of two frames that claim the same bytes the stronger is meant: looks inside the span of the one
// found first.
FoundFrame PictureSearch::strongest(const Judged& found, std::uint64_t searchedFrom) {
  Judged best = found;
  std::uint64_t at = found.frame.offset + 1;
  for (int rivals = 0; rivals < mostRivals && best.score < beyondDoubt; ++rivals) {
    const FoundFrame* next = candidates_.next(at, found.frame.end());
    if (next == nullptr) {
      break;
    }
    const FoundFrame rival = *next;
    at = rival.offset + 1;
    if (const double rivalScore = score(rival, searchedFrom);
        rivalScore > best.score && !finder_.isContradicted(rival)) {
      best = {rival, rivalScore};
    }
  }
  return best.frame;
}

// Whether an access unit delimiter (H.264 §7.3.2.4, H.265 §7.3.2.5) ends right before `at`.
bool PictureSearch::followsDelimiter(std::uint64_t at) {
  static constexpr std::array<std::uint8_t, 5> h264{0, 0, 0, 2, 0x09};
  static constexpr std::array<std::uint8_t, 6> hevc{0, 0, 0, 3, 0x46, 0x01};
  const bool isH264 = evidence_.format().codec == NALFormat::Codec::h264;
  const std::span<const std::uint8_t> delimiter =
      isH264 ? std::span<const std::uint8_t>(h264) : std::span<const std::uint8_t>(hevc);
  const std::size_t length = delimiter.size() + 1;
  if (evidence_.format().lengthSize != 4 || at < length) {
    return false;
  }
  const auto before = finder_.bytesAt(at - length, length);
  return before.size() >= length && std::equal(delimiter.begin(), delimiter.end(), before.begin());
}

// Whether parameter sets lead to `at` that are not of this stream.
bool PictureSearch::followsOtherSets(std::uint64_t at) {
  const std::uint64_t from = last_ ? std::min(last_->end(), at) : start_;
  const std::uint64_t ahead = startOfUnitsAhead(from, at, evidence_.format(), source_);
  return ahead < at &&
         describeOthers(ahead, at, evidence_.format(), evidence_.parameterSets(), source_);
}

// Whether the candidate is another camera's or another track's frame, which then counts as passed;
// or whether one of these begins a little before it and holds it, as a frame that opens with
// parameter sets holds its slice.
bool PictureSearch::isForeign(const FoundFrame& candidate) {
  if (!evidence_.hasDelimiters() && followsDelimiter(candidate.offset)) {
    return true;  // another camera's
  }
  if (candidate.isKeyframe && followsOtherSets(candidate.offset)) {
    return true;
  }
  if (others_.wasPassedLast(candidate)) {
    return true;
  }
  if (others_.own(candidate)) {
    const auto foreign = others_.at(candidate.offset);
    others_.pass(*foreign);
    passed_.push_back({foreign->offset, foreign->end()});
    return true;
  }
  return others_.hold(candidate);
}

// The frame that stands behind `frame`, directly or across a gap as the reference has them.
std::optional<FoundFrame> PictureSearch::successor(const FoundFrame& frame) {
  if (const auto next = finder_.maybeFrameAt(frame.end())) {
    return next;
  }
  return firstBehind(frame, evidence_.largestGap() * 2 + 1);
}

// Frames of kinds that the reference lacks are believed across a gap as the camera leaves them:
// beyond a gap that something destroyed, another camera's frames could stand.
bool PictureSearch::mayBeExpected(const FoundFrame& candidate, std::uint64_t searchedFrom) {
  return candidate.isLearnt || evidence_.isShort() ||
         evidence_.gapBits(candidate.offset - searchedFrom) > 0;
}

// Whether compressed sound leads from the last picture to the candidate, and on to the next, if
// there is one: the chain is unbroken. Soon behind a loss it may be another camera's.
bool PictureSearch::isLinkedBySound(const FoundFrame& candidate, std::uint64_t searchedFrom) {
  const bool mayBe = lessons_.blocks != nullptr && last_ && last_->end() == searchedFrom &&
                     sinceLoss_ >= enoughSinceLoss && linksTried_++ < mostLinks;
  if (!mayBe) {
    return false;
  }
  const auto next = successor(candidate);
  if (!next) {
    return evidence_.followerBits(finder_.bytesAt(candidate.end(), 4)) > 0 &&
           asking_.follows(*last_, candidate);
  }
  followedBySound_ += next->offset - candidate.end();
  return followedBySound_ <= lookInside + (candidate.offset - start_) / 2 &&
         asking_.follows(candidate, *next) && asking_.follows(*last_, candidate);
}

// Whether there is nothing but sound behind the candidate up to the clip's end: as much as between
// two pictures, or as is left where a recording ends.
bool PictureSearch::isLastBesideSound(const FoundFrame& candidate) {
  constexpr std::uint64_t longestEnding = std::uint64_t{256} << 10U;
  const std::uint64_t left = end_ - std::min(end_, candidate.end());
  if (left == 0 || left > std::max(longestEnding, evidence_.largestGap() * 2)) {
    return false;
  }
  followedBySound_ += left;
  const auto parts = BoxesInMedia(source_).outside({candidate.end(), end_});
  return parts.size() == 1 && parts.front().lower == candidate.end() &&
         asking_.isSound(parts.front());
}

// What compressed sound says for a candidate that is not enough with `known` bits: it leads from
// the last picture right to this one, or from this one to another.
double PictureSearch::soundBits(const FoundFrame& candidate, std::uint64_t searchedFrom,
                                double known) {
  const bool mayBe = lessons_.blocks != nullptr && candidate.isLearnt &&
                     candidate.offset > searchedFrom && known + endOfSound >= enoughWhenFound &&
                     followedBySound_ <= lookInside + (candidate.offset - start_) / 8;
  if (!mayBe) {
    return 0;
  }
  followedBySound_ += evidence_.largestGap();
  if (last_ && last_->end() == searchedFrom && asking_.follows(*last_, candidate)) {
    return endOfSound;
  }
  const auto next = successor(candidate);
  const bool leadsOn = next ? next->offset > candidate.end() && asking_.follows(candidate, *next)
                            : isLastBesideSound(candidate);
  return leadsOn ? endOfSound : 0;
}

// They are, when known ones go on behind them.
bool PictureSearch::isExpected(const Judged& candidate, std::uint64_t searchedFrom) {
  if (candidate.frame.isLearnt || evidence_.isShort() ||
      isLinkedBySound(candidate.frame, searchedFrom)) {
    return true;
  }
  if (hasBetterRival(candidate, searchedFrom)) {
    return false;
  }
  const double gap = evidence_.gapBits(candidate.frame.offset - searchedFrom);
  FoundFrame at = candidate.frame;
  for (int hops = 0; hops < mostUnknownInARow; ++hops) {
    const auto next = successor(at);
    if (!next) {
      return gap >= usualDistance / 2;
    }
    if (evidence_.successionBits(at.slice, next->slice) < 0) {
      return false;
    }
    if (next->isLearnt) {
      return true;
    }
    at = *next;
  }
  return false;
}

// Whether a frame of a known kind within reach is more likely what comes next.
bool PictureSearch::hasBetterRival(const Judged& candidate, std::uint64_t searchedFrom) {
  const std::uint64_t reach = searchedFrom + evidence_.largestGap() * 2 + 1;
  std::uint64_t at = candidate.frame.offset + 1;
  for (int looks = 0; looks < mostLooks; ++looks) {
    const FoundFrame* next = candidates_.next(at, reach);
    if (next == nullptr) {
      return false;
    }
    const FoundFrame rival = *next;
    at = rival.offset + 1;
    if (rival.isLearnt && score(rival, searchedFrom) > candidate.score) {
      return true;
    }
  }
  return false;
}

// Whether a candidate needs no look at all of its content, nor for the frame that follows: sound
// that reads as a frame gives itself away near its start. Compressed sound that leads from the last
// picture right to this one speaks for it, too, unless its end is not like the others'.
bool PictureSearch::isCertain(const FoundFrame& candidate, std::uint64_t searchedFrom,
                              double itself) {
  const auto endsAsOthers = [&] {
    return evidence_.followerBits(finder_.bytesAt(candidate.end(), 4)) >= 0 ||
           finder_.maybeFrameAt(candidate.end());
  };
  const auto isSoundBetween = [&] {
    return lessons_.blocks != nullptr && itself + endOfSound >= certain && last_ &&
           last_->end() == searchedFrom && endsAsOthers() && linksTried_++ < mostLinks &&
           asking_.follows(*last_, candidate);
  };
  return candidate.isLearnt && (isEnough(itself, candidate, certain) || isSoundBetween()) &&
         !finder_.isContradicted(candidate, openingOfFrame);
}

// Whether the candidate stands in a gap as the reference often has them, up to a frame that counts
// on from the last one: then it is sound that reads as a frame.
bool PictureSearch::liesInUsualGap(const FoundFrame& candidate, std::uint64_t searchedFrom) {
  const auto& gaps = evidence_.usualGaps();
  if (!last_ || last_->end() != searchedFrom ||
      std::binary_search(gaps.begin(), gaps.end(), candidate.offset - searchedFrom)) {
    return false;
  }
  return std::any_of(gaps.begin(), gaps.end(), [&](std::uint64_t gap) {
    const std::uint64_t at = searchedFrom + gap;
    const auto next = at >= candidate.end() ? finder_.maybeFrameAt(at) : std::nullopt;
    return next && next->isLearnt && next->bits >= enoughWhereDue &&
           evidence_.successionBits(last_->slice, next->slice) > 0;
  });
}

void PictureSearch::rememberTorn(const FoundFrame& candidate) {
  if (candidate.isLearnt && candidate.bits >= enoughWhereDue && torn_.starts.size() < mostTorn) {
    torn_.starts.insert(candidate.offset);
    torn_.ends.insert(candidate.end());
  }
}

std::optional<FoundFrame> PictureSearch::next(std::uint64_t from,
                                              const std::function<void(std::uint64_t)>& passed) {
  torn_ = {};
  passed_.clear();
  linksTried_ = 0;
  for (std::uint64_t at = from; at < end_;) {
    stop_.check();
    candidates_.forgetBefore(at);
    finder_.forgetBefore(at);
    const std::uint64_t to = end_ - at > searchStep ? at + searchStep : end_;
    const FoundFrame* next = candidates_.next(at, to);
    if (next == nullptr) {
      passed(to);
      at = to;
      continue;
    }
    const FoundFrame candidate = *next;
    at = candidate.offset + 1;
    if (const auto behind = side_.telemetryOver(candidate.offset, from)) {
      at = *behind;
      continue;
    }
    rememberTorn(candidate);
    if (!mayBeExpected(candidate, from)) {
      continue;
    }
    const double itself = scoreByItself(candidate, from);
    if (isCertain(candidate, from, itself) && !liesInUsualGap(candidate, from) &&
        !isForeign(candidate)) {
      return candidate;
    }
    if (finder_.isOverworked()) {
      continue;
    }
    const double known = itself + follower(candidate);
    const bool isEnoughAlone = isEnough(known, candidate, enoughWhenFound);
    const double sound = isEnoughAlone ? 0 : soundBits(candidate, from, known);
    if (!isEnoughAlone && known + sound < enoughWhenFound) {
      continue;
    }
    const Judged judged{candidate, score(candidate, from) + sound};
    if (isExpected(judged, from) && !finder_.isContradicted(candidate) &&
        !liesInUsualGap(candidate, from) && !isForeign(candidate)) {
      return strongest(judged, from);
    }
  }
  return std::nullopt;
}

// Where losses are all over, only part of the clip is gone through once more.
bool PictureSearch::mayLookInside(std::uint64_t bytes) {
  const bool may = lookedInside_ + bytes <= lookInside + (last_->offset - start_) / 8;
  lookedInside_ += may ? bytes : 0;
  return may;
}

// Whether pictures within the last one, from `frame` on, lead to `next`; where none is known, over
// the last one's end. Several that stand one right behind the other are enough: what stands between
// pictures is not always told.
bool PictureSearch::leadsOut(FoundFrame frame, const FoundFrame* next) {
  const std::uint64_t reach = evidence_.largestGap() * 2 + 1;
  int inARow = 0;
  for (int hops = 0; hops < mostLooks && mayLookInside(3 * reach); ++hops) {
    if (inARow == enoughInARow) {
      return true;
    }
    if (next != nullptr ? asking_.follows(frame, *next) : hops > 0 && frame.end() > last_->end()) {
      return true;
    }
    auto between = finder_.maybeFrameAt(frame.end());
    if (!between) {
      between = finder_.search(frame.end() + 1, std::min(frame.end() + reach, end_));
    }
    const bool isAhead = between && (next == nullptr || between->offset < next->offset);
    if (!isAhead || !asking_.follows(frame, *between)) {
      return false;
    }
    const bool isKnown = between->isLearnt && between->bits >= enoughWhereDue;
    inARow = isKnown && between->offset == frame.end() ? inARow + 1 : 0;
    frame = *between;
  }
  return false;
}

std::optional<FoundFrame> PictureSearch::swallowedBefore(const FoundFrame* next) {
  if (!last_ || !mayLookInside(last_->size)) {
    return std::nullopt;
  }
  std::uint64_t at = last_->offset + 1;
  for (int looks = 0; looks < mostLooks; ++looks) {
    const auto candidate = finder_.search(at, last_->end());
    if (!candidate) {
      break;
    }
    at = candidate->offset + 1;
    const auto passed = static_cast<double>(candidate->offset - last_->offset);
    const bool isPart = candidate->end() == last_->end();
    const bool mayBe = candidate->isLearnt && !isPart &&
                       candidate->bits >= enoughWhereDue + std::log2(passed + 64) / 2;
    if (mayBe && leadsOut(*candidate, next) && !finder_.isContradicted(*candidate) &&
        !isForeign(*candidate)) {
      // All of it will be gone through once more.
      const std::uint64_t to = next != nullptr ? next->offset : last_->end();
      return mayLookInside(to - candidate->offset) ? candidate : std::nullopt;
    }
  }
  return std::nullopt;
}

}  // namespace tallowmark::VideoRepair
