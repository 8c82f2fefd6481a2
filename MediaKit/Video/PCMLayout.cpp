// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/PCMLayout.h"

#include <algorithm>
#include <array>

namespace tallowmark {

std::optional<PCMLayout> PCMLayout::of(const Track& track) {
  static constexpr std::array<FourCC, 8> uncompressed{"lpcm", "sowt", "twos", "in24",
                                                      "in32", "fl32", "fl64", "raw "};
  const auto& runs = track.samples.runs();
  if (std::find(uncompressed.begin(), uncompressed.end(), track.codec) == uncompressed.end() ||
      runs.empty() || runs.front().first.size == 0) {
    return std::nullopt;
  }
  const std::uint32_t size = runs.front().first.size;
  const bool common = std::all_of(runs.begin(), runs.end(),
                                  [&](const SampleRun& run) { return run.first.size == size; });
  return common ? std::optional(PCMLayout{size}) : std::nullopt;
}

}  // namespace tallowmark
