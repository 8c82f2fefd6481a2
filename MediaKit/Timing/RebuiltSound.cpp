// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/RebuiltSound.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <numeric>
#include <optional>

#include "MediaKit/Sound/SilentBlock.h"
#include "MediaKit/Timing/SoundPacing.h"

namespace tallowmark::VideoRepair {

namespace {

/// Silent blocks ahead of a block of the found ones.
struct Filling {
  std::uint64_t before = 0;
  std::uint64_t blocks = 0;
};

/// Bytes that a second of each takes in the file.
struct Rates {
  double picture = 1;
  double sound = 1;
};

/// Works out, loss by loss, which of sound and picture lost how much more than the other.
class BlockPacer {
 public:
  BlockPacer(const EvidencedFindings& found, const BlockLayout& layout,
             std::uint32_t videoTimescale, double block, Rates rates)
      : found_(found),
        gaps_(found.blocks.gaps),
        end_{.frame = found.video.size(), .blocksBehind = found.blocks.longest()},
        lead_(layout.lead),
        tolerance_(std::max(layout.leadStep, block / 2)),
        isFarApart_(layout.arrivals.areFarApart()),
        frame_(static_cast<double>(found.video.typicalDuration()) / videoTimescale),
        starts_(startSeconds(found.video, videoTimescale)),
        block_(block),
        rates_(rates),
        key_(firstKeyframe(found.video)) {}

  void pace();

  /// Seconds of the sound that is left and put in ahead of pictures beside which nothing is lost.
  std::vector<SoundAnchor> anchors() const;
  /// Blocks that go because their pictures do.
  std::uint64_t dropped() const { return dropped_; }
  /// Seconds of sound that are lost behind the key frame.
  double lost() const { return lost_; }
  const std::vector<Filling>& fillings() const { return fillings_; }
  /// Seconds that pictures are held, by their numbers.
  const std::vector<std::pair<std::uint64_t, double>>& holds() const { return holds_; }

 private:
  double leadBehind(const SoundGap& gap) const {
    return static_cast<double>(gap.blocksBehind) * block_ - starts_[gap.frame];
  }
  double heldFor(const SoundGap& gap, const SoundGap& whole) const;
  std::size_t nextWhole(std::size_t gap) const;
  bool endsWhole(const SoundGap& gap) const;
  bool isUntelling(const SoundGap& gap) const {
    return gap.isLoss && !(found_.areMissingTold && endsWhole(gap));
  }
  std::size_t nextTelling(std::size_t gap) const;
  double leadFrom(std::size_t gap) const;
  void fillWhatIsLost();
  void fillAsHeld(std::size_t from);
  double unexplained(std::size_t from, std::size_t to) const;
  double lostSound(std::size_t from, std::size_t to, double surplus) const;
  void alignStart();
  void correct(const SoundGap& gap, double surplus);
  void paceEnd(std::size_t from);

  const EvidencedFindings& found_;
  const std::vector<SoundGap>& gaps_;
  /// Behind the last picture.
  SoundGap end_;
  const SoundLead& lead_;
  double tolerance_;
  /// Sound comes in chunks that belong to no picture.
  bool isFarApart_;
  double frame_;
  std::vector<double> starts_;
  double block_;
  Rates rates_;
  std::uint64_t key_;
  /// Seconds that sound gained on the picture in the losses gone through.
  double gained_ = 0;
  std::uint64_t dropped_ = 0;
  double lost_ = 0;
  static constexpr std::size_t leadsEnough = 4;
  std::vector<Filling> fillings_;
  std::vector<std::pair<std::uint64_t, double>> holds_;
};

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
    const double lead = leadBehind(gaps_[whole]) + surplus;
    surplus = lead - std::clamp(lead, lead_.least, lead_.most);
    gained_ = surplus - static_cast<double>(key_) * frame_;
  }
  if (surplus > 0) {
    dropped_ = static_cast<std::uint64_t>(std::lround(surplus / block_));
  } else if (-surplus > tolerance_) {
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
      const double usual = recent.empty() ? lead_.usual
                                          : std::accumulate(recent.begin(), recent.end(), 0.0) /
                                                static_cast<double>(recent.size());
      const double surplus = leadFrom(telling) - gained_ - usual;
      if (surplus < -tolerance_ || surplus > lead_.most - lead_.least + miscounted) {
        lost_ += std::max(0.0, -surplus);
        gained_ += surplus;
        correct(gaps_[surplus < 0 && gaps_[telling].isLoss ? telling : i], surplus);
      }
    }
    i = gaps_[telling].isLoss ? telling : telling - 1;
  }
}

void BlockPacer::pace() {
  alignStart();
  if (found_.areMissingTold) {
    fillWhatIsLost();
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

// The blocks with silence for those that have no size.
SampleList withSilence(const SampleList& blocks, const Sample& silent) {
  SampleList filled;
  for (const SampleRun& run : blocks.runs()) {
    if (run.first.size > 0) {
      filled.append(blocks.slice(run.start, run.start + run.count));
      continue;
    }
    for (std::uint64_t i = 0; i < run.count; ++i) {
      filled.append(silent);
    }
  }
  return filled;
}

SampleList paced(const SampleList& blocks, const BlockPacer& pacer, const Sample& silent) {
  SampleList filled;
  std::uint64_t done = std::min(pacer.dropped(), blocks.size());
  for (const Filling& filling : pacer.fillings()) {
    const std::uint64_t upTo = std::clamp(filling.before, done, blocks.size());
    filled.append(blocks.slice(done, upTo));
    for (std::uint64_t i = 0; i < filling.blocks; ++i) {
      filled.append(silent);
    }
    done = upTo;
  }
  filled.append(blocks.slice(done, blocks.size()));
  return filled;
}

std::uint64_t sizelessOf(const SampleList& blocks) {
  std::uint64_t count = 0;
  for (const SampleRun& run : blocks.runs()) {
    count += run.first.size == 0 ? run.count : 0;
  }
  return count;
}

std::uint64_t endOf(const SampleList& samples) {
  std::uint64_t end = 0;
  for (const SampleRun& run : samples.runs()) {
    end = std::max(end, run.first.size > 0 ? run.end() : 0);
  }
  return end;
}

std::uint64_t bytesOf(const SampleList& samples) {
  std::uint64_t bytes = 0;
  for (const SampleRun& run : samples.runs()) {
    bytes += run.end() - run.first.offset;
  }
  return bytes;
}

// How much longer than most the pictures of a camera last in all. Only one of variable rate lets
// them last as it likes.
double meanStretch(const Track& video) {
  const double typical = video.typicalDuration() * static_cast<double>(video.samples.size());
  return hasVariableRate(video) && typical > 0
             ? std::max(1.0, static_cast<double>(video.duration()) / typical)
             : 1;
}

double lostBytes(const FoundBlocks& blocks) {
  double bytes = 0;
  for (const SoundGap& gap : blocks.gaps) bytes += static_cast<double>(gap.unexplained);
  return bytes;
}

/// Silent blocks behind the media, one of each kind that is kept.
class Silence {
 public:
  Silence(const BlockLayout& layout, std::uint64_t from, std::vector<std::uint8_t>& bytes)
      : layout_(layout), from_(from), bytes_(bytes), kept_(layout.kinds.size()) {}

  /// Where one of that kind is, or will be if it is the next to be kept.
  Sample of(std::uint8_t kind) const {
    const SoundHabits& habits = layout_.kinds[kind];
    return {.offset = kept_[kind].value_or(from_ + bytes_.size()),
            .size = static_cast<std::uint32_t>(silentBlock(habits.usualPattern).size()),
            .duration = habits.ticks,
            .isSync = true};
  }
  void keep(std::uint8_t kind) {
    if (!kept_[kind]) {
      const auto block = silentBlock(layout_.kinds[kind].usualPattern);
      kept_[kind] = from_ + bytes_.size();
      bytes_.insert(bytes_.end(), block.begin(), block.end());
    }
  }

 private:
  const BlockLayout& layout_;
  std::uint64_t from_;
  std::vector<std::uint8_t>& bytes_;
  std::vector<std::optional<std::uint64_t>> kept_;
};

// Makes the tracks. Silence is kept when one of them points to it.
void layTracks(const EvidencedFindings& found, const Movie& reference, const BlockLayout& layout,
               const BlockPacer& pacer, RebuiltSound& sound) {
  std::uint64_t mediaEnd = endOf(found.video);
  if (!found.side.telemetry.empty()) {
    mediaEnd = std::max(mediaEnd, found.side.telemetry.back().range.upper);
  }
  for (const SampleList& blocks : found.blocks.tracks) {
    mediaEnd = std::max(mediaEnd, endOf(blocks));
  }
  Silence silence(layout, mediaEnd, sound.silence);
  for (std::size_t i = 0; i < layout.tracks.size(); ++i) {
    const SampleList& blocks = found.blocks.tracks[i];
    const BlockLayout::SoundTrack& place = layout.tracks[i];
    // A track of which not one block could be told is none.
    if (sizelessOf(blocks) == blocks.size()) {
      continue;
    }
    const Sample silent = silence.of(place.kind);
    Track track = reference.tracks[place.number];
    track.samples = withSilence(paced(blocks, pacer, silent), silent);
    if (endOf(track.samples) > mediaEnd) {
      silence.keep(place.kind);
    }
    sound.tracks.push_back(std::move(track));
  }
}

}  // namespace

RebuiltSound rebuildSound(EvidencedFindings& found, const Movie& reference,
                          const BlockLayout& layout) {
  RebuiltSound sound;
  const std::uint32_t videoTimescale = reference.videoTrack()->timescale;
  const std::uint32_t audioTimescale = reference.tracks[layout.tracks.front().number].timescale;
  if (found.blocks.empty() || videoTimescale == 0 || audioTimescale == 0) {
    return sound;
  }
  const double frame = static_cast<double>(found.video.typicalDuration()) / videoTimescale;
  const double block = static_cast<double>(layout.kinds.front().ticks) / audioTimescale;
  const auto foundOf = [](const SampleList& blocks) { return blocks.size() - sizelessOf(blocks); };
  const SampleList& fullest = *std::max_element(
      found.blocks.tracks.begin(), found.blocks.tracks.end(),
      [&](const SampleList& a, const SampleList& b) { return foundOf(a) < foundOf(b); });
  sound.filled = sizelessOf(fullest);
  sound.found = foundOf(fullest);
  const double pictures = static_cast<double>(found.video.size()) * frame;
  const double soundFound = static_cast<double>(sound.found) * block;
  const bool isComplete = found.losses.empty() && found.blocks.unplaced == 0;
  // A few blocks in a clip full of gaps are another stream's, which now and then walks as ours.
  constexpr double leastShare = 0.1;
  constexpr double leastToTell = 0.5;
  // Pictures that are dropped here and there make it more; between these blocks tell by themselves.
  const bool areInChunks = layout.arrivals.areFarApart() || found.blocks.areInChunks;
  const double tooMuch = !areInChunks ? 1.6 : hasVariableRate(*reference.videoTrack()) ? 1.4 : 1.25;
  const double stretch = meanStretch(*reference.videoTrack());
  if (soundFound < pictures * leastShare ||
      (isComplete && !ratesAgree(found, layout.lead, pictures, soundFound, block))) {
    return {};
  }
  const Rates rates{static_cast<double>(bytesOf(found.video)) / std::max(pictures, frame),
                    static_cast<double>(found.blocks.bytes) / soundFound};
  // More than can be of all pictures that there are and were is another number of tracks.
  const double everShown = pictures + lostBytes(found.blocks) / rates.picture;
  if (!isComplete &&
      soundFound > tooMuch * stretch * everShown + std::max(0.0, layout.lead.most) + leastToTell) {
    return {};
  }
  BlockPacer pacer(found, layout, videoTimescale, block, rates);
  pacer.pace();

  sound.lost = sound.filled + static_cast<std::uint64_t>(std::llround(pacer.lost() / block));
  for (const Filling& filling : pacer.fillings()) {
    sound.filled += filling.blocks;
  }
  sound.lost = std::max(sound.lost, sound.filled);
  layTracks(found, reference, layout, pacer, sound);
  sound.anchors = pacer.anchors();
  std::vector<Hold> holds;
  for (const auto& [number, seconds] : pacer.holds()) {
    holds.push_back({number, ticks(seconds, videoTimescale)});
  }
  found.video = withHolds(found.video, holds);
  return sound;
}

}  // namespace tallowmark::VideoRepair
