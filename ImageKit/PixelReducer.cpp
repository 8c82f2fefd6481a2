// SPDX-License-Identifier: GPL-3.0-or-later
#include "ImageKit/PixelReducer.h"

#include <algorithm>
#include <utility>

namespace tallowmark {
namespace {

int scaledDown(int side, int longSide, int maxPixels) {
  if (longSide <= maxPixels) {
    return side;
  }
  const auto scaled = (std::int64_t{side} * maxPixels + longSide / 2) / longSide;
  return std::max(1, static_cast<int>(scaled));
}

}  // namespace

PixelReducer::PixelReducer(int width, int height, int maxPixels) : height_(height) {
  const int longSide = std::max(width, height);
  small_.width = scaledDown(width, longSide, maxPixels);
  small_.height = scaledDown(height, longSide, maxPixels);
  const auto columns = static_cast<std::size_t>(small_.width);
  small_.rgb.resize(columns * static_cast<std::size_t>(small_.height) * 3);
  sums_.resize(columns * 3);
  columnCounts_.resize(columns);
  targetColumn_.resize(static_cast<std::size_t>(width));
  for (std::size_t x = 0; x < targetColumn_.size(); ++x) {
    targetColumn_[x] = x * columns / targetColumn_.size();
    ++columnCounts_[targetColumn_[x]];
  }
}

void PixelReducer::addRow(std::span<const std::uint8_t> rgb) {
  if (rowsSeen_ == height_) {
    return;
  }
  const auto row = static_cast<int>(std::int64_t{rowsSeen_} * small_.height / height_);
  if (row != targetRow_) {
    finishRow();
    targetRow_ = row;
  }
  const std::size_t columns = std::min(targetColumn_.size(), rgb.size() / 3);
  for (std::size_t x = 0; x < columns; ++x) {
    std::uint32_t* const sum = &sums_[targetColumn_[x] * 3];
    for (std::size_t c = 0; c < 3; ++c) {
      sum[c] += rgb[x * 3 + c];
    }
  }
  ++rowsSummed_;
  ++rowsSeen_;
}

void PixelReducer::finishRow() {
  if (rowsSummed_ == 0) {
    return;
  }
  const auto offset = static_cast<std::size_t>(targetRow_) * sums_.size();
  for (std::size_t i = 0; i < sums_.size(); ++i) {
    const std::uint32_t count = columnCounts_[i / 3] * rowsSummed_;
    small_.rgb[offset + i] = static_cast<std::uint8_t>(count == 0 ? 0 : sums_[i] / count);
  }
  std::fill(sums_.begin(), sums_.end(), 0);
  rowsSummed_ = 0;
}

Pixels PixelReducer::take() {
  finishRow();
  return std::move(small_);
}

Pixels turned(Pixels pixels, int orientation) {
  if (orientation < 2 || orientation > 8) {
    return pixels;
  }
  const bool swapsSides = orientation >= 5;
  Pixels result{.width = swapsSides ? pixels.height : pixels.width,
                .height = swapsSides ? pixels.width : pixels.height,
                .rgb = std::vector<std::uint8_t>(pixels.rgb.size())};
  std::uint8_t* to = result.rgb.data();
  for (int y = 0; y < result.height; ++y) {
    for (int x = 0; x < result.width; ++x, to += 3) {
      // Where the shown pixel stands in the stored picture (EXIF 2.3, table 4, Orientation).
      int storedX = swapsSides ? y : x;
      int storedY = swapsSides ? x : y;
      const bool mirrored =
          orientation == 2 || orientation == 3 || orientation == 7 || orientation == 8;
      const bool flipped =
          orientation == 3 || orientation == 4 || orientation == 6 || orientation == 7;
      if (mirrored) {
        storedX = pixels.width - 1 - storedX;
      }
      if (flipped) {
        storedY = pixels.height - 1 - storedY;
      }
      const auto from = static_cast<std::size_t>(storedY) * static_cast<std::size_t>(pixels.width) +
                        static_cast<std::size_t>(storedX);
      std::copy_n(&pixels.rgb[from * 3], 3, to);
    }
  }
  return result;
}

}  // namespace tallowmark
