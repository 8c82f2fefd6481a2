// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/SilentSamples.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/WrittenRange.h"
#include "MediaKit/Interleaving/PCMLayout.h"
#include "MediaKit/Sound/SilentBlock.h"
#include "MediaKit/Sound/SoundHabits.h"

namespace tallowmark::VideoRepair {

namespace {

// Unsigned samples are silent in the middle of their range: 8 bits of `raw ` (QuickTime File
// Format, Sound Sample Descriptions). So are those of G.711, with bits inverted.
std::uint8_t silentByte(const Track& track) {
  constexpr std::size_t bitsAt = 26;
  if (track.codec == "ulaw") return 0xFF;
  if (track.codec == "alaw") return 0xD5;
  const bool isUnsigned = track.codec == "raw " && track.sampleEntry.size() >= bitsAt + 2 &&
                          bigEndian<std::uint16_t>(track.sampleEntry, bitsAt) == 8;
  return isUnsigned ? 0x80 : 0;
}

std::uint64_t longestHold(const SampleList& samples) {
  std::uint64_t longest = 0;
  for (const SampleRun& run : samples.runs()) {
    longest = std::max<std::uint64_t>(longest, run.first.duration);
  }
  return longest > 0 ? longest - 1 : 0;
}

// `silent`: the first of `most` silent samples, which long silence goes through again and again.
void appendHeld(Sample held, const Sample& silent, std::uint64_t most, SampleList& filled) {
  std::uint64_t left = held.duration / silent.duration - 1;
  held.duration = silent.duration + held.duration % silent.duration;
  filled.append(held);
  while (left > 0) {
    const std::uint64_t now = std::min(left, most);
    filled.append(silent, now);
    left -= now;
  }
}

SampleList withSilentSamples(const SampleList& samples, const Sample& silent, std::uint64_t most) {
  SampleList filled;
  for (const SampleRun& run : samples.runs()) {
    if (run.first.duration <= 1) {
      filled.append(samples.slice(run.start, run.start + run.count));
      continue;
    }
    for (std::uint64_t i = 0; i < run.count; ++i) {
      appendHeld(run.at(i), silent, most, filled);
    }
  }
  return filled;
}

// The numbers of the track's last samples ahead of losses, in order.
std::vector<std::uint64_t> aheadOfLosses(const Track& track, const std::vector<LostPiece>& pieces) {
  std::vector<std::uint64_t> numbers;
  for (const LostPiece& piece : pieces) {
    for (const LostPiece::Resumption& place : piece.resumptions) {
      const bool isOne = place.trackID == track.trackID && place.sample > 0;
      if (isOne && place.sample <= track.samples.size()) numbers.push_back(place.sample - 1);
    }
  }
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

// A silent block as that track of AAC would have it; empty for other tracks.
std::vector<std::uint8_t> silentBlockOf(const Track& track, const ByteSource& clip) {
  if (track.kind != Track::Kind::audio) return {};
  const auto habits = SoundHabits::learn(track, clip);
  const bool isUsual = habits && habits->ticks > 0 && track.typicalDuration() == habits->ticks;
  return isUsual ? silentBlock(habits->usualPattern) : std::vector<std::uint8_t>{};
}

// Bytes of a tick of PCM of which many are stored as one sample; nothing for other tracks.
std::optional<std::uint32_t> packedPCM(const Track& track) {
  constexpr std::uint32_t largest = 1U << 20U;
  const std::uint32_t ticks = track.typicalDuration();
  if (ticks < 2 || track.kind != Track::Kind::audio) {
    return std::nullopt;
  }
  const SampleRuns runs = track.samples.runs();
  const auto usual = std::find_if(
      runs.begin(), runs.end(), [&](const SampleRun& run) { return run.first.duration == ticks; });
  Track packet;
  packet.codec = track.codec;
  packet.samples.append((*usual).first);
  const auto pcm = PCMLayout::ofEvenSamples(packet);
  return pcm && pcm->sampleSize <= largest && pcm->sampleSize % ticks == 0
             ? std::optional(pcm->sampleSize / ticks)
             : std::nullopt;
}

/// What goes behind samples of a track that last longer than what is in them.
struct Filler {
  Sample silent;
  std::vector<std::uint8_t> bytes;
  /// Of a tick; none for blocks, which are not divided.
  std::optional<std::uint32_t> tickBytes;
  /// How many more of them may be: times are made up in some files.
  std::uint32_t left = 1U << 21U;

  static Filler of(const Track& track, std::uint64_t at, const ByteSource& clip);

  /// Appends the sample for as long as it lasts by itself, and silence for the rest of its time.
  void append(Sample held, SampleList& filled);
};

Filler Filler::of(const Track& track, std::uint64_t at, const ByteSource& clip) {
  Filler filler{.silent = {.offset = at, .duration = track.typicalDuration(), .isSync = true}};
  filler.tickBytes = packedPCM(track);
  filler.bytes = filler.tickBytes ? std::vector<std::uint8_t>(
                                        std::size_t{*filler.tickBytes} * filler.silent.duration,
                                        silentByte(track))
                                  : silentBlockOf(track, clip);
  filler.silent.size = static_cast<std::uint32_t>(filler.bytes.size());
  return filler;
}

void Filler::append(Sample held, SampleList& filled) {
  const std::uint32_t own = tickBytes ? held.size / *tickBytes : silent.duration;
  const std::uint32_t empty = held.duration - std::min(held.duration, own);
  const std::uint32_t whole = empty / silent.duration;
  if (whole > left || (whole == 0 && !tickBytes)) {
    filled.append(held);
    return;
  }
  left -= whole;
  const std::uint32_t rest = empty % silent.duration;
  held.duration -= tickBytes ? empty : empty - rest;
  filled.append(held);
  for (std::uint32_t i = 0; i < whole; ++i) filled.append(silent);
  if (tickBytes && rest > 0) {
    Sample last = silent;
    last.duration = rest;
    last.size = rest * *tickBytes;
    filled.append(last);
  }
}

}  // namespace

std::vector<std::uint8_t> fillHolds(Movie& movie) {
  constexpr std::uint64_t mostBytes = std::uint64_t{1} << 20U;
  const std::uint64_t mediaEnd = writtenRange(movie).upper;
  std::vector<std::uint8_t> silence;
  for (Track& track : movie.tracks) {
    const bool isInSingles = track.kind == Track::Kind::audio && track.typicalDuration() == 1;
    const auto pcm = isInSingles ? PCMLayout::ofEvenSamples(track) : std::nullopt;
    const std::uint64_t longest = pcm ? longestHold(track.samples) : 0;
    if (longest == 0) {
      continue;
    }
    const std::uint64_t most = std::clamp<std::uint64_t>(mostBytes / pcm->sampleSize, 1, longest);
    const Sample silent{.offset = mediaEnd + silence.size(),
                        .size = pcm->sampleSize,
                        .duration = 1,
                        .isSync = true};
    silence.resize(silence.size() + most * pcm->sampleSize, silentByte(track));
    track.samples = withSilentSamples(track.samples, silent, most);
  }
  return silence;
}

FilledSilence fillLostSound(Movie& movie, const ByteSource& clip) {
  const std::uint64_t mediaEnd = writtenRange(movie).upper;
  FilledSilence silence{fillHolds(movie)};
  for (Track& track : movie.tracks) {
    const auto numbers = aheadOfLosses(track, movie.lostPieces);
    if (numbers.empty()) continue;
    auto filler = Filler::of(track, mediaEnd + silence.bytes.size(), clip);
    if (filler.bytes.empty()) continue;
    SampleList filled;
    std::uint64_t done = 0;
    for (const std::uint64_t number : numbers) {
      filled.append(track.samples.slice(done, number));
      filler.append(track.samples[number], filled);
      done = number + 1;
    }
    filled.append(track.samples.slice(done, track.samples.size()));
    if (filled.size() == track.samples.size()) continue;
    silence.blocks += filler.tickBytes ? 0 : filled.size() - track.samples.size();
    track.samples = std::move(filled);
    silence.bytes.insert(silence.bytes.end(), filler.bytes.begin(), filler.bytes.end());
  }
  return silence;
}

}  // namespace tallowmark::VideoRepair
