// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/RebuiltSound.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "MediaKit/Sound/SilentBlock.h"
#include "MediaKit/Timing/BlockPacer.h"
#include "MediaKit/Timing/SoundPacing.h"

namespace tallowmark::VideoRepair {

namespace {

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
  // In the dark a camera takes fewer pictures than its reference, down to a third; not an eighth.
  constexpr double farTooMuch = 8;
  const bool mayBeMore = found.blocks.comeAsLearnt && soundFound < farTooMuch * pictures;
  if (soundFound < pictures * leastShare ||
      (isComplete && !(mayBeMore && soundFound > pictures) &&
       !ratesAgree(found, layout.lead, pictures, soundFound, block))) {
    return {};
  }
  const ByteRates rates{static_cast<double>(bytesOf(found.video)) / std::max(pictures, frame),
                        static_cast<double>(found.blocks.bytes) / soundFound};
  // More than can be of all pictures that there are and were is another number of tracks.
  const double everShown = pictures + lostBytes(found.blocks) / rates.picture;
  if (!isComplete && !mayBeMore &&
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
