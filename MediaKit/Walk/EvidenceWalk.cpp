// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/EvidenceWalk.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "DeviceKit/CachedSource.h"
#include "MediaKit/Container/Box.h"
#include "MediaKit/Interleaving/BoxesInMedia.h"
#include "MediaKit/Interleaving/Stretches.h"
#include "MediaKit/Walk/PCMTracks.h"
#include "MediaKit/Walk/PictureSearch.h"
#include "MediaKit/Walk/SpaceSetAside.h"
#include "MediaKit/Walk/UnitsAhead.h"

namespace tallowmark::VideoRepair {

namespace {

// Each time what is left of the file is searched anew.
constexpr int mostEndings = 4;

// A box of which the file's end is the end (ISO/IEC 14496-12, 4.2) may have been cut anywhere.
bool hasNoSize(const ByteSource& source, const Box& box) {
  const auto size = source.read(box.offset, 4);
  return std::all_of(size.begin(), size.end(), [](std::uint8_t byte) { return byte == 0; });
}

bool liesBefore(const ByteRange& a, const ByteRange& b) {
  return a.lower < b.lower;
}

class Walker {
 public:
  Walker(const ByteSource& source, std::uint64_t from, const WalkLessons& lessons,
         const Progress& progress, const StopToken& stop);

  EvidencedFindings run();

 private:
  /// What stands between two pictures.
  struct Between {
    ByteRange gap;
    std::vector<ByteRange> telemetry;
    std::optional<BlockCollector::Content> blocks;
    SoundLayout::Division pcm;
    /// Blocks of AAC beside PCM.
    std::vector<ByteRange> beside;

    bool isUsual() const { return blocks ? blocks->isUsual : pcm.isUsual; }
    bool isWhole() const { return isUsual() || (!blocks && pcm.isUndivided); }
  };

  std::optional<std::uint64_t> boxBehind(std::uint64_t at);
  void take(const FoundFrame& frame);
  Between lookBetween(const ByteRange& gap, SoundLayout::Neighbours neighbours, StretchEnd end);
  std::vector<ByteRange> besideIn(const ByteRange& gap, StretchEnd end);
  SoundLayout::Division dividePCM(const ByteRange& gap, SoundLayout::Neighbours neighbours,
                                  const std::vector<ByteRange>& beside);
  double leadBehind(std::uint64_t samples) const;
  bool isTooMuch(const SoundLayout::Division& division) const;
  bool takeBetween(Between between, SoundLayout::Neighbours neighbours);
  std::vector<ByteRange> takePCM(const SoundLayout::Division& division);
  bool isInTurns() const { return lessons_.sound != nullptr && lessons_.sound->goesByOrder(); }
  void settleOrder();
  bool follows(const FoundFrame& frame, const FoundFrame& next);
  bool isSound(const ByteRange& stretch);
  std::vector<Between> lookBetweenAll(std::uint64_t from, std::uint64_t to,
                                      SoundLayout::Neighbours neighbours, StretchEnd ending);
  void takeAll(std::vector<Between> between, const ByteRange& stretch,
               SoundLayout::Neighbours neighbours);
  FoundFrame withUnitsAhead(std::uint64_t from, const FoundFrame& found);
  FoundFrame takeGap(std::uint64_t from, const FoundFrame& found);
  std::optional<FoundFrame> goOnWithin(std::uint64_t from, const FoundFrame* next);
  void noteLoss();
  void takeRemainder(std::uint64_t from);
  void report(std::uint64_t at);

  const ByteSource& source_;
  const std::uint64_t start_;
  const std::uint64_t end_;
  const WalkLessons& lessons_;
  const StreamEvidence& evidence_;
  const Progress& progress_;
  const StopToken& stop_;
  EvidencedFindings findings_;
  std::optional<BlockCollector> collector_;
  std::optional<BlockSearch> besideSearch_;
  std::vector<SoundLayout::OtherTrack> otherPCM_;
  int endings_ = 0;
  std::uint64_t reported_ = 0;
  /// Gaps with PCM sound as the reference has them, and the numbers of the pictures behind those of
  /// which nothing tells what is whose.
  std::uint64_t ordered_ = 0;
  std::vector<std::uint64_t> undivided_;
  /// Seconds by which PCM sound was ahead of the first picture behind some, and of any at most.
  double firstLead_ = 0;
  double mostLead_ = 0;
  /// Gaps whose sound is as the reference's, and those that only have its places.
  std::uint64_t sounding_ = 0;
  std::uint64_t doubtful_ = 0;
  /// What was looked at last and is as in the reference.
  std::optional<Between> usual_;
  bool hasUnitsAhead_ = false;
  BoxesInMedia boxes_;
  SideCollector side_;
  PictureSearch search_;
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
      boxes_(source),
      side_(source, lessons.side),
      search_(source, from, lessons, side_,
              {[this](const FoundFrame& a, const FoundFrame& b) { return follows(a, b); },
               [this](const ByteRange& gap) { return isSound(gap); }},
              stop) {
  if (lessons.blocks != nullptr) {
    collector_.emplace(source, *lessons.blocks, opensMedia(BoxReader(source), from));
  } else if (lessons.sound != nullptr) {
    otherPCM_ = lessons.sound->others();
    for (const auto& other : otherPCM_) {
      findings_.otherAudio.push_back({other.track->trackID, {}});
    }
    if (lessons.beside != nullptr && !isInTurns()) besideSearch_.emplace(source, *lessons.beside);
  }
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
  findings_.video.append({.offset = frame.offset,
                          .size = static_cast<std::uint32_t>(frame.size),
                          .duration = lessons_.frameDuration,
                          .isSync = evidence_.keys().isKey({.resetsDecoding = frame.isKeyframe,
                                                            .isIntra = isIntra(frame.slice),
                                                            .recovers = frame.recovers})});
  search_.take(frame);
}

Walker::Between Walker::lookBetween(const ByteRange& gap, SoundLayout::Neighbours neighbours,
                                    StretchEnd end) {
  Between between{gap, side_.telemetryIn(gap), std::nullopt, {}, {}};
  if (collector_) {
    between.blocks = collector_->look(gap, neighbours != SoundLayout::Neighbours::unknown, end,
                                      between.telemetry, search_.torn());
  } else if (lessons_.sound != nullptr) {
    between.beside = besideIn(gap, end);
    between.pcm = dividePCM(gap, neighbours, between.beside);
  }
  return between;
}

std::vector<ByteRange> Walker::besideIn(const ByteRange& gap, StretchEnd end) {
  std::vector<ByteRange> found;
  if (besideSearch_) {
    for (const BlockChain& chain : besideSearch_->in(gap, end, search_.torn())) {
      found.push_back({chain.from, chain.to});
    }
  }
  return found;
}

double Walker::leadBehind(std::uint64_t samples) const {
  const SoundLayout& layout = *lessons_.sound;
  return static_cast<double>(findings_.audio.size() + samples) * layout.soundTick() -
         static_cast<double>(findings_.video.size()) * lessons_.frameDuration *
             layout.pictureTick();
}

// Whether sound that does not sound so would be further ahead of the picture behind it than the
// reference's ever is, and than this clip's has been. A clip that is louder throughout tells
// nothing.
bool Walker::isTooMuch(const SoundLayout::Division& division) const {
  constexpr std::uint64_t rare = 4;
  if (!division.isDoubtful || division.sound.empty() || sounding_ == 0 ||
      doubtful_ * rare > sounding_) {
    return false;
  }
  const SoundLayout& layout = *lessons_.sound;
  const double frame = lessons_.frameDuration * layout.pictureTick();
  const double late = std::max(0.0, firstLead_ - layout.leadBehindSound().first);
  const ByteRange& sound = division.sound.front();
  return leadBehind(sound.length() / layout.pcm().sampleSize) >
         std::max(layout.leadBehindSound().most + late, mostLead_) + frame;
}

// The reference's gaps are without their boxes, too.
SoundLayout::Division Walker::dividePCM(const ByteRange& gap, SoundLayout::Neighbours neighbours,
                                        const std::vector<ByteRange>& beside) {
  if (isInTurns()) {
    return lessons_.sound->divide(source_, gap.lower, gap.upper, neighbours);
  }
  SoundLayout::Division all;
  all.isUsual = true;
  std::vector<ByteRange> parts;
  for (const ByteRange& piece : rest(gap, beside)) {
    const auto outside = boxes_.outside(piece);
    parts.insert(parts.end(), outside.begin(), outside.end());
  }
  for (const ByteRange& part : parts) {
    auto divided = lessons_.sound->divide(source_, part.lower, part.upper, neighbours);
    if (isTooMuch(divided)) {
      divided =
          lessons_.sound->divide(source_, part.lower, part.upper, SoundLayout::Neighbours::unknown);
    }
    all.sound.insert(all.sound.end(), divided.sound.begin(), divided.sound.end());
    all.isUsual = all.isUsual && divided.isUsual;
    all.isUndivided = all.isUndivided || divided.isUndivided;
    all.isDoubtful = all.isDoubtful || divided.isDoubtful;
    all.isNoSound = all.isNoSound || divided.isNoSound;
  }
  return all;
}

// Takes what stands in a gap; whether the gap is one as the reference has them.
bool Walker::takeBetween(Between between, SoundLayout::Neighbours neighbours) {
  const std::uint64_t frame = findings_.video.size();
  std::vector<ByteRange> sound = between.blocks
                                     ? collector_->take(*between.blocks, frame, search_.torn())
                                     : takePCM(between.pcm);
  // Ahead of the first picture nothing is lost where media begins: what stands there is as long as
  // the reference's, or no timecode.
  const bool opens = !search_.last() && opensMedia(BoxReader(source_), between.gap.lower);
  const bool isKnown = opens || neighbours != SoundLayout::Neighbours::unknown;
  const bool isIntact = isKnown && findings_.losses.empty();
  for (const ByteRange& blocks : between.beside) {
    side_.tell("mp4a", blocks.length());
    findings_.unused += blocks.length();
    sound.push_back(blocks);
  }
  std::sort(sound.begin(), sound.end(), liesBefore);
  const auto left = side_.take(between.gap, sound, std::move(between.telemetry), frame, isIntact);
  findings_.unused += left.unused;
  const std::uint64_t untold = left.unused - left.told;
  findings_.undividedSound += !between.blocks && between.pcm.isUndivided ? untold : 0;
  findings_.sideTracks += between.isUsual() ? untold : 0;
  return between.isUsual();
}

// The stretches of sound that were taken, of all tracks, in file order.
std::vector<ByteRange> Walker::takePCM(const SoundLayout::Division& division) {
  std::vector<ByteRange> taken;
  const std::uint64_t before = findings_.audio.size();
  ordered_ += division.isUsual && !division.sound.empty() ? 1U : 0U;
  const auto take = [&](SampleList& track, std::uint64_t at, std::uint32_t size,
                        std::uint64_t samples) {
    track.append({.offset = at, .size = size, .duration = 1, .isSync = true}, samples);
    if (size > 0) taken.push_back({at, at + samples * size});
  };
  for (std::size_t i = 0; i < division.sound.size(); ++i) {
    const std::uint32_t size = lessons_.sound->pcm().sampleSize;
    const std::uint64_t samples = division.sound[i].length() / size;
    take(findings_.audio, division.sound[i].lower, size, samples);
    for (std::size_t other = 0; other < otherPCM_.size(); ++other) {
      const auto at = division.others[i][other];
      take(findings_.otherAudio[other].samples, at.value_or(0),
           at ? otherPCM_[other].sampleSize : 0, samples);
    }
  }
  if (division.isUsual && !division.sound.empty()) {
    if (sounding_ + doubtful_ == 0) firstLead_ = leadBehind(0);
    if (!findings_.video.empty()) mostLead_ = std::max(mostLead_, leadBehind(0));
    ++(division.isDoubtful ? doubtful_ : sounding_);
    if (division.isDoubtful && findings_.audio.size() > before) {
      findings_.doubtful.push_back(
          {findings_.video.size(), before, findings_.audio.size(), division.isNoSound});
    }
  }
  std::sort(taken.begin(), taken.end(), liesBefore);
  return taken;
}

// A clip that stores its chunks in another order than the reference has gaps that fit by chance; a
// few that do not fit are damage. Where sound is kept, what could not be divided of it is a loss.
void Walker::settleOrder() {
  constexpr std::uint64_t few = 2;
  constexpr std::uint64_t unusualShare = 8;
  if (undivided_.size() > (ordered_ == 0 ? 0 : few + ordered_ / unusualShare)) {
    const std::uint64_t bytes = bytesOfPCM(findings_);
    findings_.unused += bytes;
    findings_.undividedSound += bytes;
    giveUpPCM(findings_);
    return;
  }
  std::vector<std::uint64_t> losses;
  std::set_union(findings_.losses.begin(), findings_.losses.end(), undivided_.begin(),
                 undivided_.end(), std::back_inserter(losses));
  findings_.losses = std::move(losses);
}

bool Walker::follows(const FoundFrame& frame, const FoundFrame& next) {
  if (next.offset < frame.end() || evidence_.successionBits(frame.slice, next.slice) < 0 ||
      next.offset - frame.end() > evidence_.largestGap() * 2) {
    return false;
  }
  if (next.offset == frame.end()) {
    return true;
  }
  Between between =
      lookBetween({frame.end(), next.offset}, SoundLayout::Neighbours::countOn, StretchEnd::known);
  const bool isSound = between.isWhole() && (!between.blocks || between.blocks->soundLeadsToEnd);
  if (isSound) {
    usual_ = std::move(between);
  }
  return isSound;
}

// Whether a stretch holds nothing but sound, and as much as the reference has in one.
bool Walker::isSound(const ByteRange& stretch) {
  const Between between = lookBetween(stretch, SoundLayout::Neighbours::countOn, StretchEnd::known);
  return between.blocks ? between.blocks->isExplained && !between.blocks->chains.empty()
                        : between.isWhole();
}

// What stands between pictures of any track from `from` to `to`. Compressed sound is told across
// another track's pictures, which its blocks are held against as any other data is.
std::vector<Walker::Between> Walker::lookBetweenAll(std::uint64_t from, std::uint64_t to,
                                                    SoundLayout::Neighbours neighbours,
                                                    StretchEnd ending) {
  std::vector<Between> all;
  const auto look = [&](std::uint64_t end, StretchEnd known) {
    const bool isPicture = end < to && neighbours == SoundLayout::Neighbours::endOfMedia;
    all.push_back(
        lookBetween({from, end}, isPicture ? SoundLayout::Neighbours::countOn : neighbours, known));
  };
  for (const ByteRange& foreign : search_.passed()) {
    if (!collector_ && foreign.lower >= from && foreign.upper <= to) {
      if (foreign.lower > from) look(foreign.lower, StretchEnd::known);
      from = foreign.upper;
    }
  }
  if (to > from || all.empty()) look(to, ending);
  return all;
}

void Walker::takeAll(std::vector<Between> between, const ByteRange& stretch,
                     SoundLayout::Neighbours neighbours) {
  std::uint64_t others = stretch.length();
  for (Between& piece : between) {
    others -= piece.gap.length();
    takeBetween(std::move(piece), neighbours);
  }
  findings_.unused += others;
  findings_.otherPictures += others;
}

// Key pictures bring their parameter sets along. Others are looked at once one of these does.
FoundFrame Walker::withUnitsAhead(std::uint64_t from, const FoundFrame& found) {
  if (!found.isKeyframe && !hasUnitsAhead_) {
    return found;
  }
  FoundFrame whole = found;
  whole.offset = startOfUnitsAhead(from, found.offset, evidence_.format(), source_);
  whole.size += found.offset - whole.offset;
  hasUnitsAhead_ = hasUnitsAhead_ || whole.offset < found.offset;
  return whole;
}

// Goes from `from`, where the last frame ends, to the frame that was found behind; returns that
// one, or the one to go on with instead.
FoundFrame Walker::takeGap(std::uint64_t from, const FoundFrame& found) {
  if (from == found.offset) {
    return found;
  }
  const FoundFrame next = withUnitsAhead(from, found);
  findings_.audioSeen = true;
  const std::optional<FoundFrame> last = search_.last();
  const bool continues = !last || evidence_.successionBits(last->slice, next.slice) >= 0;
  // Cameras start media with sound, too: ahead of the first frame a gap like others is whole.
  const bool countsOn = continues && (last || collector_);
  const bool hasSound = collector_ || lessons_.sound != nullptr;
  const auto neighbours =
      countsOn ? SoundLayout::Neighbours::countOn : SoundLayout::Neighbours::unknown;
  const bool isKnown = countsOn && usual_ && usual_->gap == ByteRange{from, next.offset};
  std::vector<Between> between =
      isKnown ? std::vector<Between>{*std::exchange(usual_, std::nullopt)}
              : lookBetweenAll(from, next.offset, neighbours, StretchEnd::known);
  const bool isUsual = std::all_of(between.begin(), between.end(),
                                   [](const Between& piece) { return piece.isUsual(); });
  // Without sound to look for, what stands there is other tracks', as much as in the reference.
  const bool isAllThere = hasSound
                              ? std::all_of(between.begin(), between.end(),
                                            [](const Between& piece) { return piece.isWhole(); })
                              : last && evidence_.isUsualGap(next.offset - last->end());
  // Sound that begins where the last frame ends shows that it ends there.
  const Between& first = between.front();
  const bool isWhole = (continues && (isAllThere || !hasSound)) ||
                       (first.blocks && first.blocks->soundLeadsFromStart);
  if (const auto swallowed = isWhole ? std::nullopt : goOnWithin(from, &next)) {
    return *swallowed;
  }
  takeAll(std::move(between), {from, next.offset}, neighbours);
  if (!collector_) {
    findings_.gaps.push_back(
        {findings_.video.size(), {from, next.offset}, last && continues, isUsual});
  }
  if (!isAllThere || !continues) {
    noteLoss();
  } else if (hasSound && !isUsual) {
    undivided_.push_back(findings_.video.size());
  }
  return next;
}

// Gives the last frame up, which ends at `from`, for one that it swallowed; nothing when there is
// none.
std::optional<FoundFrame> Walker::goOnWithin(std::uint64_t from, const FoundFrame* next) {
  const std::optional<FoundFrame> last = search_.last();
  if (!last || last->end() != from) {
    return std::nullopt;
  }
  const auto swallowed = search_.swallowedBefore(next);
  if (swallowed) {
    findings_.video.removeLast();
    noteLoss();
    search_.goBackTo(swallowed->offset);
    constexpr auto unknown = SoundLayout::Neighbours::unknown;
    takeBetween(lookBetween({last->offset, swallowed->offset}, unknown, StretchEnd::known),
                unknown);
  }
  return swallowed;
}

// Once for each place: the last frame may have been given up behind one.
void Walker::noteLoss() {
  search_.noteLoss();
  const std::uint64_t place = findings_.video.size();
  if (findings_.losses.empty() || findings_.losses.back() != place) {
    findings_.losses.push_back(place);
  }
}

// What lies behind the last frame may still be sound, up to where the media data ends, and in
// media-data boxes behind that. A box that was closed, with nothing cut from it, ends as the camera
// ended it.
void Walker::takeRemainder(std::uint64_t from) {
  if (findings_.video.empty()) {
    findings_.unused += end_ - from;
    return;
  }
  struct Rest {
    ByteRange stretch;
    SoundLayout::Neighbours neighbours = SoundLayout::Neighbours::unknown;
  };
  std::vector<Rest> rests{{{from, end_}}};
  BoxReader(source_).visit(0, end_, [&](const Box& box) {
    const bool isOpen = hasNoSize(source_, box) && isInTurns();
    const auto neighbours = box.truncated || isOpen ? SoundLayout::Neighbours::unknown
                                                    : SoundLayout::Neighbours::endOfMedia;
    if (box.type == "mdat" && box.payloadOffset() <= from && from <= box.end()) {
      rests.back() = {{from, box.end()}, neighbours};
    } else if (box.type == "mdat" && rests.back().stretch.upper <= box.offset) {
      rests.push_back({{box.payloadOffset(), box.end()}, neighbours});
    }
    return true;
  });
  std::uint64_t left = end_ - from;
  for (auto& [stretch, neighbours] : rests) {
    if (lessons_.sound != nullptr) {
      stretch.upper = spaceSetAsideIn(stretch, lessons_.sound->mostSound(), source_);
    }
    const auto ending = stretch.upper != end_ ? StretchEnd::known : StretchEnd::unknown;
    takeAll(lookBetweenAll(stretch.lower, stretch.upper, neighbours, ending), stretch, neighbours);
    left -= stretch.length();
  }
  findings_.unused += left;
}

void Walker::report(std::uint64_t at) {
  if (progress_ && end_ > start_ && at > reported_) {
    reported_ = at;
    progress_(static_cast<double>(at - start_) / static_cast<double>(end_ - start_) * 0.5);
  }
}

EvidencedFindings Walker::run() {
  for (std::uint64_t at = start_; at < end_;) {
    stop_.check();
    if (const auto frame = search_.due(at)) {
      take(*frame);
      at = frame->end();
    } else if (const auto foreign = search_.passForeign(at)) {
      findings_.unused += *foreign - at;
      findings_.otherPictures += *foreign - at;
      at = *foreign;
    } else if (const auto behind = boxBehind(at)) {
      at = *behind;
    } else if (const auto next = search_.next(at, [this](std::uint64_t to) { report(to); })) {
      const FoundFrame found = takeGap(at, *next);
      take(found);
      at = found.end();
    } else if (const auto swallowed =
                   endings_ < mostEndings ? goOnWithin(at, nullptr) : std::nullopt) {
      ++endings_;
      take(*swallowed);
      at = swallowed->end();
    } else {
      takeRemainder(at);
      at = end_;
    }
    report(at);
  }
  if (collector_) {
    findings_.blocks = collector_->result();
  }
  settleOrder();
  if (doubtful_ > sounding_) {
    std::erase_if(findings_.doubtful, [](const DoubtfulSound& sound) { return !sound.isNoSound; });
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
