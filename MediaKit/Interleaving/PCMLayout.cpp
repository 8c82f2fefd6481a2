// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/PCMLayout.h"

#include <algorithm>
#include <array>

namespace tallowmark {

namespace {

template <std::size_t count>
bool isOneOf(FourCC codec, const std::array<FourCC, count>& codecs) {
  return std::find(codecs.begin(), codecs.end(), codec) != codecs.end();
}

std::optional<PCMLayout> commonSize(const Track& track) {
  const SampleRuns runs = track.samples.runs();
  if (runs.empty() || runs.front().first.size == 0) {
    return std::nullopt;
  }
  const std::uint32_t size = runs.front().first.size;
  const bool common = std::all_of(runs.begin(), runs.end(),
                                  [&](const SampleRun& run) { return run.first.size == size; });
  return common ? std::optional(PCMLayout{size}) : std::nullopt;
}

}  // namespace

std::optional<PCMLayout> PCMLayout::of(const Track& track) {
  static constexpr std::array<FourCC, 8> uncompressed{"lpcm", "sowt", "twos", "in24",
                                                      "in32", "fl32", "fl64", "raw "};
  return isOneOf(track.codec, uncompressed) ? commonSize(track) : std::nullopt;
}

std::optional<PCMLayout> PCMLayout::ofEvenSamples(const Track& track) {
  static constexpr std::array<FourCC, 2> byLaw{"ulaw", "alaw"};
  return isOneOf(track.codec, byLaw) ? commonSize(track) : of(track);
}

}  // namespace tallowmark
