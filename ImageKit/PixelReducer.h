// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "MediaKit/Photo/ImageService.h"

namespace tallowmark {

/// Makes a picture smaller while its rows come in, each small pixel the mean of those it covers.
/// Keeps the small picture only.
class PixelReducer {
 public:
  /// `width` and `height` are what comes in; the long side that comes out is at most `maxPixels`.
  PixelReducer(int width, int height, int maxPixels);

  /// The next row from the top, 8-bit red, green, blue. Rows beyond the height are left out.
  void addRow(std::span<const std::uint8_t> rgb);

  /// The small picture; rows that never came are black.
  Pixels take();

 private:
  void finishRow();

  int height_;
  Pixels small_;
  std::vector<std::size_t> targetColumn_;
  std::vector<std::uint32_t> sums_;
  std::vector<std::uint32_t> columnCounts_;
  std::uint32_t rowsSummed_ = 0;
  int rowsSeen_ = 0;
  int targetRow_ = 0;
};

/// The picture as its EXIF orientation (1 to 8) wants it shown.
Pixels turned(Pixels pixels, int orientation);

}  // namespace tallowmark
