// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/BlockPacer.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "MediaKit/Timing/SoundPacing.h"

namespace tallowmark::VideoRepair {

namespace {

// Of chunks between which nothing is lost, but for the first.
double chunkOf(const std::vector<SoundGap>& gaps) {
  std::vector<double> chunks;
  for (std::size_t i = 1; i < gaps.size(); ++i) {
    if (!gaps[i].isLoss && !gaps[i - 1].isLoss) {
      chunks.push_back(static_cast<double>(gaps[i].blocksBehind - gaps[i - 1].blocksBehind));
    }
  }
  return usualChunk(std::move(chunks));
}

}  // namespace

BlockPacer::BlockPacer(const EvidencedFindings& found, const BlockLayout& layout,
                       std::uint32_t videoTimescale, double block, ByteRates rates)
    : found_(found),
      gaps_(found.blocks.gaps),
      end_{.frame = found.video.size(), .blocksBehind = found.blocks.longest()},
      lead_(layout.laterLead),
      moreAtFirst_(layout.lead.first - layout.laterLead.middle),
      tolerance_(std::max(layout.leadStep, block / 2)),
      isFarApart_(layout.arrivals.areFarApart()),
      endLead_(layout.endLead),
      frame_(static_cast<double>(found.video.typicalDuration()) / videoTimescale),
      betweenChunks_(layout.arrivals.picturesPerGap() * frame_),
      starts_(startSeconds(found.video, videoTimescale)),
      block_(block),
      rates_(rates),
      key_(firstKeyframe(found.video)) {
  if (isFarApart_) {
    chunk_ = chunkOf(gaps_);
    if (chunk_ == 0) chunk_ = layout.arrivals.usualChunk();
    tolerance_ = layout.leadStep + block / 2;
    lastLong_ = lastLongStretch();
  }
}

// The next gap in which nothing is lost.
std::size_t BlockPacer::nextWhole(std::size_t gap) const {
  while (gap < gaps_.size() && gaps_[gap].isLoss) {
    ++gap;
  }
  return gap;
}

// Whether a gap in which something is lost has all of its last blocks, right ahead of the picture.
bool BlockPacer::endsWhole(const SoundGap& gap) const {
  if (gap.blocksBehind == gap.blocksBeforeLoss || gap.frame >= found_.video.size()) {
    return false;
  }
  const std::uint64_t picture = found_.video[gap.frame].offset;
  return std::any_of(found_.blocks.tracks.begin(), found_.blocks.tracks.end(),
                     [&](const SampleList& blocks) {
                       if (blocks.size() < gap.blocksBehind) {
                         return false;
                       }
                       const Sample last = blocks[gap.blocksBehind - 1];
                       return last.size > 0 && last.offset + last.size == picture;
                     });
}

// The next gap whose sound is as far ahead of the picture as nothing but lost blocks makes it.
std::size_t BlockPacer::nextTelling(std::size_t gap) const {
  while (gap < gaps_.size() && isUntelling(gaps_[gap])) {
    ++gap;
  }
  return gap;
}

// How far sound is ahead at the next few gaps, up to the next loss.
double BlockPacer::leadFrom(std::size_t gap) const {
  double sum = leadBehind(gaps_[gap]);
  double count = 1;
  for (std::size_t i = gap + 1; i < gaps_.size() && !gaps_[i].isLoss && count < leadsEnough; ++i) {
    sum += leadBehind(gaps_[i]);
    ++count;
  }
  return sum / count;
}

// Bytes of the losses numbered [from, to).
double BlockPacer::unexplained(std::size_t from, std::size_t to) const {
  double bytes = 0;
  for (std::size_t gap = from; gap < to; ++gap) {
    bytes += static_cast<double>(gaps_[gap].unexplained);
  }
  return bytes;
}

// Seconds that pictures are held already for those that are known to be missing at a loss and on to
// where nothing is.
double BlockPacer::heldFor(const SoundGap& gap, const SoundGap& whole) const {
  const std::uint64_t from = std::max<std::uint64_t>(gap.frame, 1) - 1;
  return starts_[whole.frame] - starts_[from] - static_cast<double>(whole.frame - from) * frame_;
}

// Seconds of sound that the losses numbered [from, to) took, which made sound gain `surplus` on the
// picture: both together took the bytes that nothing explains.
double BlockPacer::lostSound(std::size_t from, std::size_t to, double surplus) const {
  const double bytes = unexplained(from, to);
  const double pictures = (bytes + surplus * rates_.sound) / (rates_.picture + rates_.sound);
  return std::max(0.0, std::max(0.0, pictures) - surplus);
}

// Pictures ahead of the first key frame will go. What was lost before it is not known, but how far
// sound is ahead of the picture in such files.
void BlockPacer::alignStart() {
  double tolerance = tolerance_;
  double surplus = static_cast<double>(key_) * frame_;
  const bool isLossy = !gaps_.empty() && gaps_.front().isLoss && gaps_.front().frame <= key_;
  const bool losesFrames = std::any_of(gaps_.begin(), gaps_.end(), [&](const SoundGap& gap) {
    return gap.isLoss && gap.frame <= key_;
  });
  if (isLossy || losesFrames) {
    std::size_t whole = 0;
    while (whole < gaps_.size() && (isUntelling(gaps_[whole]) || gaps_[whole].frame < key_)) {
      ++whole;
    }
    if (whole == gaps_.size()) {
      gained_ = -surplus;
      return;
    }
    gained_ = -surplus;
    fillHoles(0, whole + 1);
    const double lead = leadBehind(gaps_[whole]) - gained_;
    const auto byEnd = surplusByEnd(whole);
    if (byEnd) tolerance = endsApart;
    surplus = byEnd ? *byEnd - gained_ : lead - std::clamp(lead, lead_.least, lead_.most);
    gained_ += surplus;
  }
  if (surplus > 0) {
    dropFromStart(static_cast<std::uint64_t>(std::lround(surplus / block_)));
  } else if (-surplus > tolerance) {
    const std::uint64_t before = isLossy && key_ == 0 ? gaps_.front().blocksBeforeLoss : 0;
    fillings_.push_back({before, static_cast<std::uint64_t>(std::lround(-surplus / block_))});
  }
}

void BlockPacer::correct(const SoundGap& gap, double surplus) {
  if (surplus > 0) {
    holds_.emplace_back(gap.frame - 1, surplus);
  } else if (const auto blocks = std::lround(-surplus / block_); blocks > 0) {
    fillings_.push_back({gap.blocksBeforeLoss, static_cast<std::uint64_t>(blocks)});
  }
}

// Seconds that a loss took of a chunk of which some is left, where they are alike.
double BlockPacer::lostOfChunk(std::size_t gap) const {
  const std::uint64_t before = gap > 0 ? gaps_[gap - 1].blocksBehind : 0;
  const auto left = static_cast<double>(gaps_[gap].blocksBehind - before);
  return gaps_[gap].isLoss && left > 0 ? std::max(0.0, chunk_ - left) * block_ : 0;
}

// Shares the silence for what losses from `from` on took out among these: each chunk of which some
// is left gets its rest, and sound is never later than when the next one is due. What remains is
// where most is missing, or ahead of what is left of the chunk that tells.
void BlockPacer::fallSilent(std::size_t from, std::size_t telling, double seconds) {
  const double latest = lead_.least - betweenChunks_;
  const std::size_t end = gaps_[telling].isLoss ? telling + 1 : telling;
  std::size_t most = from;
  double filled = 0;
  for (std::size_t i = from; i < end && isFarApart_; ++i) {
    if (!gaps_[i].isLoss) continue;
    if (gaps_[i].unexplained > gaps_[most].unexplained) most = i;
    const double lacking = latest - (leadBehind(gaps_[i]) - gained_ + filled);
    const double here =
        std::min(std::max(lacking > tolerance_ ? lacking : 0, lostOfChunk(i)), seconds - filled);
    if (here > block_) {
      correct(gaps_[i], -here);
      filled += here;
    }
  }
  correct(gaps_[gaps_[telling].isLoss ? telling : most], filled - seconds);
}

// Nothing that is whole follows the losses from `from` on. Both end together, so what sound lacks
// shows there. Some cameras stop it a little before the picture: only what there are bytes of can
// be lost, and what stands behind the last picture may be anything.
void BlockPacer::paceEnd(std::size_t from) {
  const double lacking = gained_ + std::min(lead_.least, 0.0) - leadBehind(end_);
  if (lacking > tolerance_) {
    const std::size_t tail = gaps_.back().frame >= end_.frame ? 1 : 0;
    const std::size_t to = std::max(from, gaps_.size() - tail);
    const double inBytes = unexplained(from, to) / rates_.sound;
    const double lost = std::min(lacking, inBytes);
    lost_ += found_.areMissingTold ? lost : lostSound(from, to, -lost);
  }
}

// Nothing tells what sound lost from a gap on: as much as its pictures, with which it is stored.
void BlockPacer::fillAsHeld(std::size_t from) {
  for (std::size_t i = from; i < gaps_.size() && !isFarApart_; ++i) {
    const SoundGap& gap = gaps_[i];
    const double held = gap.isLoss && gap.frame > key_ ? heldFor(gap, gap) : 0;
    const bool isAmidSound = gap.blocksBeforeLoss > 0 && gap.blocksBeforeLoss < end_.blocksBehind;
    if (held > tolerance_ && isAmidSound) {
      gained_ -= held;
      lost_ += held;
      correct(gap, -held);
    }
  }
  paceEnd(from);
}

std::size_t BlockPacer::lastLongStretch() const {
  constexpr double overdue = 1.5;
  std::uint64_t to = end_.frame;
  for (std::size_t gap = gaps_.size(); gap > 0; --gap) {
    const std::uint64_t from = gaps_[gap - 1].frame;
    if (static_cast<double>(to - std::min(from, to)) * frame_ > overdue * betweenChunks_) {
      return gap;
    }
    to = from;
  }
  return 0;
}

// What sound gained on the picture up to the last chunk, where nothing is lost from a gap to that
// one: both end together then, as in the reference.
std::optional<double> BlockPacer::surplusByEnd(std::size_t gap) const {
  std::size_t last = gap;
  while (last + 1 < gaps_.size() && !gaps_[last + 1].isLoss) ++last;
  const bool isSoundOver = gaps_[last].blocksBehind == end_.blocksBehind && lastLong_ > last;
  if (!isFarApart_ || gaps_[last].frame >= end_.frame || !isSoundOver) {
    return std::nullopt;
  }
  const double lead =
      starts_.back() - starts_[gaps_[last].frame] + endLead_ - moreAhead(gaps_[last]);
  const bool isUsual = lead >= lead_.least - endsApart && lead <= lead_.most + endsApart;
  return isUsual ? std::optional(leadBehind(gaps_[last]) - lead) : std::nullopt;
}

// How far ahead sound was at `recent` gaps, or is in the reference.
double BlockPacer::usualLead(const std::deque<double>& recent) const {
  return recent.empty() ? lead_.usual
                        : std::accumulate(recent.begin(), recent.end(), 0.0) /
                              static_cast<double>(recent.size());
}

// Silence for the holes in chunks of the gaps numbered [from, to), by their bytes. Between pictures
// nothing but sound is lost then.
std::vector<Filling> BlockPacer::silenceIn(std::size_t from, std::size_t to) const {
  std::vector<Filling> silence;
  if (!isFarApart_ || !found_.areMissingTold || from >= to) {
    return silence;
  }
  auto gap = gaps_.begin() + static_cast<std::ptrdiff_t>(from);
  const auto end = gaps_.begin() + static_cast<std::ptrdiff_t>(to);
  const std::vector<SoundHole>& holes = found_.blocks.holes;
  auto hole = std::partition_point(holes.begin(), holes.end(), [&](const SoundHole& before) {
    return before.frame < gap->frame;
  });
  for (; hole != holes.end(); ++hole) {
    while (gap != end && gap->frame < hole->frame) ++gap;
    if (gap == end) {
      break;
    }
    const bool isAllSound = hole->frame == 0 ? key_ == 0 : heldFor(*gap, *gap) < frame_ / 2;
    const double seconds = static_cast<double>(hole->bytes) / rates_.sound;
    const auto blocks = static_cast<std::uint64_t>(std::lround(seconds / block_));
    if (gap->frame == hole->frame && gap->isLoss && isAllSound && blocks > 0) {
      silence.push_back({hole->blocksBefore, blocks});
    }
  }
  return silence;
}

// Puts it in unless sound would be further ahead of the pictures than any of the reference's: then
// the bytes were something else. Seconds of it.
double BlockPacer::fillHoles(std::size_t from, std::size_t to) {
  const std::vector<Filling> silence = silenceIn(from, to);
  std::uint64_t blocks = 0;
  for (const Filling& filling : silence) blocks += filling.blocks;
  const double seconds = static_cast<double>(blocks) * block_;
  const std::size_t telling = std::min(to, gaps_.size()) - 1;
  if (silence.empty() || gaps_[telling].frame >= end_.frame ||
      leadBehind(gaps_[telling]) - gained_ + seconds > lead_.most + endsApart) {
    return 0;
  }
  fillings_.insert(fillings_.end(), silence.begin(), silence.end());
  lost_ += seconds;
  gained_ -= seconds;
  return seconds;
}

// Chunks that are alike tell to the block what the losses from `from` up to a gap took of them,
// where `about` so many seconds are missing.
std::optional<double> BlockPacer::lostOfChunks(std::size_t from, std::size_t telling,
                                               double about) const {
  if (chunk_ == 0 || from == 0) {
    return std::nullopt;
  }
  const std::size_t last = gaps_[telling].isLoss ? telling : telling - 1;
  const auto left = static_cast<double>(gaps_[last].blocksBehind - gaps_[from - 1].blocksBehind);
  const double chunks = std::round((left + about / block_) / chunk_);
  const double lost = chunks * chunk_ - left;
  return lost >= 0 ? std::optional(lost * block_) : std::nullopt;
}

// Takes that many blocks, of sound and of silence put in, from the start.
void BlockPacer::dropFromStart(std::uint64_t blocks) {
  for (Filling& filling : fillings_) {
    const std::uint64_t ahead =
        std::min(blocks, filling.before - std::min(filling.before, dropped_));
    dropped_ += ahead;
    const std::uint64_t silent = std::min(blocks - ahead, filling.blocks);
    filling.blocks -= silent;
    blocks -= ahead + silent;
  }
  dropped_ += blocks;
  std::erase_if(fillings_, [](const Filling& filling) { return filling.blocks == 0; });
}

// Where pictures last until the next one was due, sound can only have lost something against them:
// wherever it is less far ahead than before, silence takes that time.
void BlockPacer::fillWhatIsLost() {
  // Further ahead than any sound of the reference by that many seconds: more pictures are missing.
  constexpr double miscounted = 0.1;
  std::deque<double> recent;
  for (std::size_t i = 0; i < gaps_.size(); ++i) {
    const bool isBehindLoss =
        std::binary_search(found_.losses.begin(), found_.losses.end(), gaps_[i].frame);
    if (!gaps_[i].isLoss) {
      if (isBehindLoss) continue;
      recent.push_back(leadBehind(gaps_[i]) - gained_);
      if (recent.size() > leadsEnough) recent.pop_front();
      continue;
    }
    const std::size_t telling = nextTelling(i);
    if (telling == gaps_.size()) {
      fillAsHeld(i);
      return;
    }
    if (gaps_[i].frame > key_ && gaps_[i].frame > 0) {
      const double filled = fillHoles(i, telling + 1);
      const auto byEnd = surplusByEnd(telling);
      double surplus = byEnd.value_or(leadFrom(telling) - usualLead(recent)) - gained_;
      double tolerance = byEnd ? endsApart : tolerance_;
      const auto lost = byEnd ? std::nullopt : lostOfChunks(i, telling, filled - surplus);
      if (lost) {
        surplus = filled - *lost;
        tolerance = block_;
      }
      if (surplus < -tolerance || surplus > lead_.most - lead_.least + miscounted) {
        if (surplus < 0) {
          fallSilent(i, telling, -surplus);
        } else {
          correct(gaps_[i], surplus);
        }
        lost_ += std::max(0.0, -surplus);
        gained_ += surplus;
      }
    }
    i = gaps_[telling].isLoss ? telling : telling - 1;
  }
}

void BlockPacer::pace() {
  alignStart();
  if (found_.areMissingTold) {
    fillWhatIsLost();
    std::stable_sort(fillings_.begin(), fillings_.end(),
                     [](const Filling& a, const Filling& b) { return a.before < b.before; });
    return;
  }
  // Chunks make the lead swing; what a loss adds to that is carried on until it shows.
  double carried = 0;
  std::optional<double> before;
  for (std::size_t i = 0; i < gaps_.size(); ++i) {
    if (!gaps_[i].isLoss) {
      before = leadBehind(gaps_[i]);
      continue;
    }
    const std::size_t whole = nextWhole(i);
    if (whole == gaps_.size()) {
      paceEnd(i);
      return;
    }
    if (gaps_[i].frame > key_ && gaps_[i].frame > 0) {
      const double surplus = leadBehind(gaps_[whole]) - before.value_or(lead_.usual);
      lost_ += lostSound(i, whole, surplus + heldFor(gaps_[i], gaps_[whole]));
      gained_ += surplus;
      carried += surplus;
      if (std::abs(carried) > tolerance_) {
        correct(gaps_[i], carried);
        carried = 0;
      }
    }
    i = whole - 1;
  }
}

std::vector<SoundAnchor> BlockPacer::anchors() const {
  std::vector<SoundAnchor> anchors;
  std::uint64_t filled = 0;
  auto filling = fillings_.begin();
  for (const SoundGap& gap : gaps_) {
    for (; filling != fillings_.end() && filling->before <= gap.blocksBehind; ++filling) {
      filled += filling->blocks;
    }
    if (!gap.isLoss && gap.frame < end_.frame && gap.blocksBehind >= dropped_) {
      const std::uint64_t blocks = gap.blocksBehind - dropped_ + filled;
      anchors.push_back({gap.frame, static_cast<double>(blocks) * block_});
    }
  }
  return anchors;
}

}  // namespace tallowmark::VideoRepair
