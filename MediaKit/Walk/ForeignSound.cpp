// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/ForeignSound.h"

#include <algorithm>
#include <vector>

namespace tallowmark::VideoRepair {

namespace {

constexpr std::size_t fewestGaps = 8;

/// Gaps in which nothing is lost, with the pictures in whose time their bytes were recorded.
struct WholeGaps {
  std::vector<ByteRange> gaps;
  double bytes = 0;
  double pictures = 0;
};

// A chunk of sound belongs to the pictures since the one before.
WholeGaps wholeGapsOf(std::span<const PictureGap> gaps) {
  WholeGaps whole;
  for (std::size_t i = 1; i < gaps.size(); ++i) {
    if (gaps[i].countsOn) {
      whole.gaps.push_back(gaps[i].range);
      whole.bytes += static_cast<double>(gaps[i].range.length());
      whole.pictures += static_cast<double>(gaps[i].frame - gaps[i - 1].frame);
    }
  }
  return whole;
}

// Reading them all would cost as much as the rest of the walk.
double shareLike(const SoundLayout& layout, const std::vector<ByteRange>& gaps,
                 const ByteSource& source) {
  constexpr std::size_t enough = 64;
  const std::size_t step = std::max<std::size_t>(1, gaps.size() / enough);
  std::size_t looked = 0;
  std::size_t alike = 0;
  for (std::size_t i = 0; i < gaps.size(); i += step, ++looked) {
    alike += layout.isLike(source, gaps[i]) ? 1U : 0U;
  }
  return static_cast<double>(alike) / static_cast<double>(std::max<std::size_t>(1, looked));
}

}  // namespace

bool areStrange(std::span<const PictureGap> gaps) {
  const auto usual =
      std::count_if(gaps.begin(), gaps.end(), [](const PictureGap& gap) { return gap.isUsual; });
  return gaps.size() >= fewestGaps && static_cast<std::size_t>(usual) * 4 < gaps.size() * 3;
}

bool isForeignSound(std::span<const PictureGap> gaps, double bytesPerPicture,
                    const SoundLayout& layout, const ByteSource& source) {
  // Half as many bytes can be one channel of two, or pictures at twice the rate.
  constexpr double fewestBytes = 0.6;
  // By chance every second gap is whole samples of one channel with 16 bits.
  constexpr double fewestAlike = 0.75;
  const WholeGaps whole = wholeGapsOf(gaps);
  return whole.gaps.size() >= fewestGaps &&
         whole.bytes < whole.pictures * bytesPerPicture * fewestBytes &&
         shareLike(layout, whole.gaps, source) < fewestAlike;
}

}  // namespace tallowmark::VideoRepair
