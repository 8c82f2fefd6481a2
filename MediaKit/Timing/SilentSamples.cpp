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
  // Of numbers that are made up.
  constexpr std::uint32_t longestSilence = 1U << 20U;
  const std::uint64_t mediaEnd = writtenRange(movie).upper;
  FilledSilence silence{fillHolds(movie)};
  for (Track& track : movie.tracks) {
    const auto numbers = aheadOfLosses(track, movie.lostPieces);
    const auto block = numbers.empty() ? std::vector<std::uint8_t>{} : silentBlockOf(track, clip);
    if (block.empty()) continue;
    const Sample silent{.offset = mediaEnd + silence.bytes.size(),
                        .size = static_cast<std::uint32_t>(block.size()),
                        .duration = track.typicalDuration(),
                        .isSync = true};
    SampleList filled;
    std::uint64_t done = 0;
    for (const std::uint64_t number : numbers) {
      const Sample held = track.samples[number];
      const std::uint32_t blocks = held.duration / silent.duration;
      if (blocks < 2 || blocks > longestSilence) continue;
      filled.append(track.samples.slice(done, number));
      appendHeld(held, silent, 1, filled);
      done = number + 1;
    }
    if (done == 0) continue;
    filled.append(track.samples.slice(done, track.samples.size()));
    silence.blocks += filled.size() - track.samples.size();
    track.samples = std::move(filled);
    silence.bytes.insert(silence.bytes.end(), block.begin(), block.end());
  }
  return silence;
}

}  // namespace tallowmark::VideoRepair
