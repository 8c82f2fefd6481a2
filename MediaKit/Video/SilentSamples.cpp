// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/SilentSamples.h"

#include <algorithm>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Video/PCMLayout.h"
#include "MediaKit/Video/WrittenRange.h"

namespace tallowmark::VideoRepair {

namespace {

// Unsigned samples are silent in the middle of their range: 8 bits of `raw ` (QuickTime File
// Format, Sound Sample Descriptions).
std::uint8_t silentByte(const Track& track) {
  constexpr std::size_t bitsAt = 26;
  const bool isUnsigned = track.codec == FourCC("raw ") && track.sampleEntry.size() >= bitsAt + 2 &&
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
SampleList withSilentSamples(const SampleList& samples, const Sample& silent, std::uint64_t most) {
  SampleList filled;
  for (const SampleRun& run : samples.runs()) {
    if (run.first.duration <= 1) {
      filled.append(samples.slice(run.start, run.start + run.count));
      continue;
    }
    for (std::uint64_t i = 0; i < run.count; ++i) {
      Sample held = run.at(i);
      std::uint64_t left = held.duration - 1;
      held.duration = 1;
      filled.append(held);
      while (left > 0) {
        const std::uint64_t now = std::min(left, most);
        filled.append(silent, now);
        left -= now;
      }
    }
  }
  return filled;
}

}  // namespace

std::vector<std::uint8_t> fillHolds(Movie& movie) {
  constexpr std::uint64_t mostBytes = std::uint64_t{1} << 20U;
  const std::uint64_t mediaEnd = writtenRange(movie).upper;
  std::vector<std::uint8_t> silence;
  for (Track& track : movie.tracks) {
    const auto pcm = track.kind == Track::Kind::audio ? PCMLayout::of(track) : std::nullopt;
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

}  // namespace tallowmark::VideoRepair
