// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/EvidenceWalk.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <span>

#include "DeviceKit/CachedSource.h"
#include "MediaKit/Container/Box.h"
#include "MediaKit/Video/CandidateStream.h"
#include "MediaKit/Video/FrameFinder.h"

namespace tallowmark::VideoRepair {

namespace {

using Trust = FrameFinder::Trust;

// Bits. A frame where one is due needs to rule out sound and telemetry that happen to read as one;
// a frame found by searching, also that any of the positions passed was one by chance.
constexpr double enoughWhereDue = 12;
constexpr double enoughForUnknownHeader = 18;
constexpr double structuredData = 5;
constexpr double soundEdge = 7;
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
constexpr std::size_t mostTorn = 10'000;
constexpr int mostUnknownInARow = 8;

class Walker {
 public:
  Walker(const ByteSource& source, std::uint64_t from, const WalkLessons& lessons,
         const Progress& progress, const StopToken& stop);

  EvidencedFindings run();

 private:
  struct Judged {
    FoundFrame frame;
    double score = 0;
  };
  enum class SoundEdge { start, end };
  /// What stands between two pictures.
  struct Between {
    ByteRange gap;
    std::vector<ByteRange> telemetry;
    std::optional<BlockCollector::Content> blocks;
    SoundLayout::Division pcm;

    bool isUsual() const { return blocks ? blocks->isUsual : pcm.isUsual; }
  };

  std::optional<FoundFrame> frameDue(std::uint64_t at);
  std::optional<std::uint64_t> foreignEnd(std::uint64_t at);
  void rememberTorn(const FoundFrame& candidate);
  std::optional<FoundFrame> findNext(std::uint64_t from);
  double scoreByItself(const FoundFrame& frame, std::uint64_t searchedFrom);
  double edgeBits(const FoundFrame& frame, SoundEdge edge);
  bool isEnough(double bits, const FoundFrame& frame, double enough);
  double score(const FoundFrame& frame, std::uint64_t searchedFrom);
  bool breaksOff(const FoundFrame& frame);
  bool isForeign(const FoundFrame& candidate);
  bool followsDelimiter(std::uint64_t at);
  std::optional<FoundFrame> successor(const FoundFrame& frame);
  bool mayBeExpected(const FoundFrame& candidate, std::uint64_t searchedFrom);
  bool isExpected(const Judged& candidate, std::uint64_t searchedFrom);
  bool hasBetterRival(const Judged& candidate, std::uint64_t searchedFrom);
  std::optional<FoundFrame> firstBehind(const FoundFrame& frame, std::uint64_t reach);
  double follower(const FoundFrame& frame);
  FoundFrame strongest(const Judged& found, std::uint64_t searchedFrom);
  std::optional<std::uint64_t> boxBehind(std::uint64_t at);
  void take(const FoundFrame& frame);
  Between lookBetween(const ByteRange& gap, SoundLayout::Neighbours neighbours, StretchEnd end);
  bool takeBetween(Between between, SoundLayout::Neighbours neighbours);
  SoundLayout::Division takenPCM(SoundLayout::Division division);
  bool connects(const FoundFrame& frame, const FoundFrame& next);
  bool leadsTo(FoundFrame frame, const FoundFrame& next);
  std::optional<FoundFrame> swallowedBefore(const FoundFrame& next);
  FoundFrame takeGap(std::uint64_t from, const FoundFrame& next);
  void takeRemainder(std::uint64_t from);
  void report(std::uint64_t at);

  const ByteSource& source_;
  const std::uint64_t start_;
  const std::uint64_t end_;
  const WalkLessons& lessons_;
  const StreamEvidence& evidence_;
  const Progress& progress_;
  const StopToken& stop_;
  FrameFinder finder_;
  CandidateStream candidates_;
  std::vector<std::unique_ptr<FrameFinder>> foreign_;
  EvidencedFindings findings_;
  std::optional<FoundFrame> last_;
  std::optional<BlockCollector> collector_;
  /// What the last search passed whose heads can be read, though it is not believed as a whole.
  TornPictures torn_;
  SideCollector side_;
  /// Bytes that were searched behind candidates, over which the search itself may go once more.
  std::uint64_t lookedBehind_ = 0;
  /// Bytes of frames that were searched for others within.
  std::uint64_t lookedInside_ = 0;
  std::uint64_t links_ = 0;
  std::uint64_t brokenLinks_ = 0;
};

Walker::Walker(const ByteSource& source, std::uint64_t from, const WalkLessons& lessons,
               const Progress& progress, const StopToken& stop)
    : source_(source),
      start_(from),
      end_(source.size()),
      lessons_(lessons),
      evidence_(*lessons.evidence),
      progress_(progress),
      stop_(stop),
      finder_(source, end_, *lessons.evidence, lessons.maxFrameSize),
      candidates_(finder_),
      side_(source, lessons.side) {
  if (lessons.blocks != nullptr) {
    collector_.emplace(source, *lessons.blocks);
  }
  for (const StreamEvidence& other : lessons.otherTracks) {
    foreign_.push_back(std::make_unique<FrameFinder>(source, end_, other, lessons.maxFrameSize));
  }
}

std::optional<std::uint64_t> Walker::foreignEnd(std::uint64_t at) {
  for (const auto& finder : foreign_) {
    if (const auto frame = finder->frameAt(at, Trust::learntOnly);
        frame && frame->bits >= enoughWhereDue) {
      return frame->end();
    }
  }
  return std::nullopt;
}

// A frame at a position where one is due: behind another one, or at the start of the media data.
std::optional<FoundFrame> Walker::frameDue(std::uint64_t at) {
  if (auto frame = finder_.frameAt(at, Trust::learntOnly);
      frame && frame->bits >= enoughWhereDue && (frame->isLearnt || !foreignEnd(at))) {
    if (!breaksOff(*frame)) {
      return frame;
    }
  }
  auto frame = last_ ? finder_.frameAt(at, Trust::anyStandard) : std::nullopt;
  if (!frame || foreignEnd(at)) {
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
bool Walker::breaksOff(const FoundFrame& frame) {
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
std::optional<FoundFrame> Walker::firstBehind(const FoundFrame& frame, std::uint64_t reach) {
  reach = std::min(reach, end_);
  const std::uint64_t from = frame.end() + 1;
  const std::uint64_t to = frame.end() + reach;
  if (lookedBehind_ + reach > lookAhead + (frame.offset - start_) / 2) {
    const FoundFrame* next = candidates_.next(from, to);
    return next != nullptr ? std::optional(*next) : std::nullopt;
  }
  auto next = finder_.search(from, to);
  lookedBehind_ += (next ? next->offset : to) - frame.end();
  return next;
}

// What stands behind a frame: another one that continues it, or what the reference has there. A
// frame further on proves nothing by being there; that its distance and its counters fit does.
double Walker::follower(const FoundFrame& frame) {
  if (const auto next = finder_.maybeFrameAt(frame.end())) {
    const double succession = evidence_.successionBits(frame.slice, next->slice);
    if (succession < 0 && evidence_.countsReliably()) {
      return -mostFromFollower;  // another stream's frames, or no frames at all
    }
    return std::min(next->bits, usualDistance) + succession;
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
double Walker::scoreByItself(const FoundFrame& frame, std::uint64_t searchedFrom) {
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

double Walker::edgeBits(const FoundFrame& frame, SoundEdge edge) {
  const bool isBefore = edge == SoundEdge::start;
  const std::uint64_t at = isBefore ? frame.offset : frame.end();
  return lessons_.sound != nullptr && lessons_.sound->isEdge(source_, at, isBefore) ? soundEdge : 0;
}

// Whether `bits` and the edges of sound around the frame are enough. Edges are looked for only
// where they settle it: in sound that reads as frames they cost more than all else.
bool Walker::isEnough(double bits, const FoundFrame& frame, double enough) {
  for (const SoundEdge edge : {SoundEdge::start, SoundEdge::end}) {
    const double possible = edge == SoundEdge::start ? 2 * soundEdge : soundEdge;
    if (bits >= enough || bits + possible < enough) {
      break;
    }
    bits += edgeBits(frame, edge);
  }
  return bits >= enough;
}

double Walker::score(const FoundFrame& frame, std::uint64_t searchedFrom) {
  return scoreByItself(frame, searchedFrom) + edgeBits(frame, SoundEdge::start) +
         edgeBits(frame, SoundEdge::end) + follower(frame);
}

// Of two frames that claim the same bytes the stronger is meant: looks inside the span of the one
// found first.
FoundFrame Walker::strongest(const Judged& found, std::uint64_t searchedFrom) {
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
bool Walker::followsDelimiter(std::uint64_t at) {
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

// Whether another track's frame begins a little before the candidate and holds it, as a frame that
// opens with parameter sets holds its slice.
bool Walker::isForeign(const FoundFrame& candidate) {
  if (!evidence_.hasDelimiters() && followsDelimiter(candidate.offset)) {
    return true;  // another camera's
  }
  constexpr std::uint64_t longestOpening = 1024;
  const std::uint64_t from = candidate.offset - std::min(candidate.offset, longestOpening);
  return std::any_of(foreign_.begin(), foreign_.end(), [&](const auto& finder) {
    const auto frame = finder->search(from, candidate.offset);
    return frame && frame->end() == candidate.end();
  });
}

// The frame that stands behind `frame`, directly or across a gap as the reference has them.
std::optional<FoundFrame> Walker::successor(const FoundFrame& frame) {
  if (const auto next = finder_.maybeFrameAt(frame.end())) {
    return next;
  }
  return firstBehind(frame, evidence_.largestGap() * 2 + 1);
}

// Frames of kinds that the reference lacks are believed across a gap as the camera leaves them:
// beyond a gap that something destroyed, another camera's frames could stand.
bool Walker::mayBeExpected(const FoundFrame& candidate, std::uint64_t searchedFrom) {
  return candidate.isLearnt || evidence_.isShort() ||
         evidence_.gapBits(candidate.offset - searchedFrom) > 0;
}

// They are, when known ones go on behind them.
bool Walker::isExpected(const Judged& candidate, std::uint64_t searchedFrom) {
  if (candidate.frame.isLearnt || evidence_.isShort()) {
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
bool Walker::hasBetterRival(const Judged& candidate, std::uint64_t searchedFrom) {
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

void Walker::rememberTorn(const FoundFrame& candidate) {
  if (candidate.isLearnt && candidate.bits >= enoughWhereDue && torn_.starts.size() < mostTorn) {
    torn_.starts.insert(candidate.offset);
    torn_.ends.insert(candidate.end());
  }
}

std::optional<FoundFrame> Walker::findNext(std::uint64_t from) {
  torn_ = {};
  for (std::uint64_t at = from; at < end_;) {
    stop_.check();
    candidates_.forgetBefore(at);
    finder_.forgetBefore(at);
    const std::uint64_t to = end_ - at > searchStep ? at + searchStep : end_;
    const FoundFrame* next = candidates_.next(at, to);
    if (next == nullptr) {
      report(to);
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
    // What is this likely needs no look at all its content, nor at what follows: both cost a read
    // of the whole frame. Sound that reads as a frame gives itself away near its start.
    const double itself = scoreByItself(candidate, from);
    if (candidate.isLearnt && isEnough(itself, candidate, certain) &&
        !finder_.isContradicted(candidate, openingOfFrame) && !isForeign(candidate)) {
      return candidate;
    }
    if (finder_.isOverworked() ||
        !isEnough(itself + follower(candidate), candidate, enoughWhenFound)) {
      continue;
    }
    const Judged judged{candidate, score(candidate, from)};
    if (isExpected(judged, from) && !finder_.isContradicted(candidate) && !isForeign(candidate)) {
      return strongest(judged, from);
    }
  }
  return std::nullopt;
}

// The end of what a box header at `at` announces between two stretches of media: phones close one
// media-data box and open another, with an index of what came before in between.
std::optional<std::uint64_t> Walker::boxBehind(std::uint64_t at) {
  static constexpr std::array<FourCC, 4> whole{"moov", "moof", "wide", "uuid"};
  static constexpr std::array<FourCC, 3> headerOnly{"mdat", "free", "skip"};
  const auto box = BoxReader(source_).box(at);
  if (!box) {
    return std::nullopt;
  }
  if (std::find(headerOnly.begin(), headerOnly.end(), box->type) != headerOnly.end()) {
    return box->payloadOffset();
  }
  const bool known = std::find(whole.begin(), whole.end(), box->type) != whole.end();
  return known && !box->truncated ? std::optional(box->end()) : std::nullopt;
}

void Walker::take(const FoundFrame& frame) {
  const bool isKey = frame.isKeyframe || (evidence_.intraPicturesAreKeys() && isIntra(frame.slice));
  findings_.video.append({.offset = frame.offset,
                          .size = static_cast<std::uint32_t>(frame.size),
                          .duration = lessons_.frameDuration,
                          .isSync = isKey});
  last_ = frame;
}

Walker::Between Walker::lookBetween(const ByteRange& gap, SoundLayout::Neighbours neighbours,
                                    StretchEnd end) {
  Between between{gap, side_.telemetryIn(gap), std::nullopt, {}};
  if (collector_) {
    between.blocks = collector_->look(gap, neighbours == SoundLayout::Neighbours::countOn, end,
                                      between.telemetry, torn_);
  } else if (lessons_.sound != nullptr) {
    between.pcm = lessons_.sound->divide(source_, gap.lower, gap.upper, neighbours);
  }
  return between;
}

// Takes what stands in a gap; whether the gap is one as the reference has them.
bool Walker::takeBetween(Between between, SoundLayout::Neighbours neighbours) {
  const std::uint64_t frame = findings_.video.size();
  SoundLayout::Division sound;
  if (between.blocks) {
    auto taken = collector_->take(*between.blocks, frame, torn_);
    sound = {std::move(taken.sound), taken.isUsual};
  } else {
    sound = takenPCM(std::move(between.pcm));
  }
  const bool isIntact = neighbours == SoundLayout::Neighbours::countOn && findings_.losses.empty();
  const auto left =
      side_.take(between.gap, sound.sound, std::move(between.telemetry), frame, isIntact);
  findings_.unused += left.unused;
  findings_.sideTracks += sound.isUsual ? left.unused - left.told : 0;
  return sound.isUsual;
}

SoundLayout::Division Walker::takenPCM(SoundLayout::Division division) {
  for (ByteRange& range : division.sound) {
    const std::uint32_t size = lessons_.sound->pcm().sampleSize;
    const std::uint64_t samples = range.length() / size;
    findings_.audio.append({.offset = range.lower, .size = size, .duration = 1, .isSync = true},
                           samples);
    range.upper = range.lower + samples * size;
  }
  return division;
}

// Whether `next` follows `frame` as in a clip of which nothing is lost.
bool Walker::connects(const FoundFrame& frame, const FoundFrame& next) {
  if (next.offset < frame.end() || evidence_.successionBits(frame.slice, next.slice) < 0) {
    return false;
  }
  return next.offset == frame.end() ||
         lookBetween({frame.end(), next.offset}, SoundLayout::Neighbours::countOn,
                     StretchEnd::known)
             .isUsual();
}

bool Walker::leadsTo(FoundFrame frame, const FoundFrame& next) {
  for (int hops = 0; hops < mostLooks && !connects(frame, next); ++hops) {
    const auto between = successor(frame);
    if (!between || between->offset >= next.offset || !connects(frame, *between)) {
      return false;
    }
    frame = *between;
  }
  return true;
}

// Other data that was written over a clip may end in the middle of a picture, whose length then
// leads far into what is left of the clip. The first picture within the last one that leads to
// `next`, as the last one does not: then that is none. Where losses are all over, only part of it
// all is gone through once more.
std::optional<FoundFrame> Walker::swallowedBefore(const FoundFrame& next) {
  if (!last_ || lookedInside_ > lookInside + (last_->offset - start_) / 8) {
    return std::nullopt;
  }
  const FoundFrame& frame = *last_;
  lookedInside_ += frame.size;
  std::uint64_t at = frame.offset + 1;
  for (int looks = 0; looks < mostLooks; ++looks) {
    const auto candidate = finder_.search(at, frame.end());
    if (!candidate) {
      break;
    }
    at = candidate->offset + 1;
    const bool isPart = candidate->end() == frame.end();
    if (!isPart && candidate->isLearnt && candidate->bits >= enoughWhereDue &&
        leadsTo(*candidate, next) && !finder_.isContradicted(*candidate) &&
        !isForeign(*candidate)) {
      return candidate;
    }
  }
  return std::nullopt;
}

// Goes from `from`, where the last frame ends, to the frame that was found behind; returns that
// one, or the one to go on with instead.
FoundFrame Walker::takeGap(std::uint64_t from, const FoundFrame& next) {
  if (from == next.offset) {
    return next;
  }
  findings_.audioSeen = true;
  const bool continues = !last_ || evidence_.successionBits(last_->slice, next.slice) >= 0;
  // Cameras start media with sound, too: ahead of the first frame a gap like others is whole.
  const bool countsOn = continues && (last_ || collector_);
  const bool hasSound = collector_ || lessons_.sound != nullptr;
  auto neighbours = countsOn ? SoundLayout::Neighbours::countOn : SoundLayout::Neighbours::unknown;
  Between between = lookBetween({from, next.offset}, neighbours, StretchEnd::known);
  const auto swallowed =
      continues && (between.isUsual() || !hasSound) ? std::nullopt : swallowedBefore(next);
  if (swallowed) {
    findings_.video.removeLast();
    candidates_.goBackTo(swallowed->offset);
    neighbours = SoundLayout::Neighbours::unknown;
    between = lookBetween({last_->offset, swallowed->offset}, neighbours, StretchEnd::known);
  }
  const bool usual = takeBetween(std::move(between), neighbours);
  if (swallowed || !usual || !continues) {
    findings_.losses.push_back(findings_.video.size());
  }
  return swallowed.value_or(next);
}

// What lies behind the last frame may still be sound, up to where the media data ends. A box that
// was closed, with nothing cut from it, ends as the camera ended it.
void Walker::takeRemainder(std::uint64_t from) {
  std::uint64_t end = end_;
  auto neighbours = SoundLayout::Neighbours::unknown;
  BoxReader(source_).visit(0, end_, [&](const Box& box) {
    if (box.type == "mdat" && box.payloadOffset() <= from && from <= box.end()) {
      end = box.end();
      neighbours =
          box.truncated ? SoundLayout::Neighbours::unknown : SoundLayout::Neighbours::countOn;
    }
    return true;
  });
  if (findings_.video.empty()) {
    findings_.unused += end_ - from;
    return;
  }
  const auto ending = end != end_ ? StretchEnd::known : StretchEnd::unknown;
  takeBetween(lookBetween({from, end}, neighbours, ending), neighbours);
  findings_.unused += end_ - end;
}

void Walker::report(std::uint64_t at) {
  if (progress_ && end_ > start_) {
    progress_(static_cast<double>(at - start_) / static_cast<double>(end_ - start_) * 0.5);
  }
}

EvidencedFindings Walker::run() {
  for (std::uint64_t at = start_; at < end_;) {
    stop_.check();
    if (const auto frame = frameDue(at)) {
      take(*frame);
      at = frame->end();
    } else if (const auto foreign = foreignEnd(at)) {
      findings_.unused += *foreign - at;
      findings_.otherPictures += *foreign - at;
      at = *foreign;
    } else if (const auto behind = boxBehind(at)) {
      at = *behind;
    } else if (const auto next = findNext(at)) {
      const FoundFrame found = takeGap(at, *next);
      take(found);
      at = found.end();
    } else {
      takeRemainder(at);
      at = end_;
    }
    report(at);
  }
  if (collector_) {
    findings_.blocks = collector_->result();
  }
  findings_.side = side_.result();
  return std::move(findings_);
}

}  // namespace

EvidencedFindings walkByEvidence(const ByteSource& source, std::uint64_t from,
                                 const WalkLessons& lessons, const Progress& progress,
                                 const StopToken& stop) {
  // Searching, judging and taking what stands between frames go over the same bytes in turn.
  const CachedSource cached(source);
  return Walker(cached, from, lessons, progress, stop).run();
}

}  // namespace tallowmark::VideoRepair
