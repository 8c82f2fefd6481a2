// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Photo/MarkerSearch.h"

namespace tallowmark {

/// A picture in memory: 8-bit red, green, blue; rows from the top, without gaps.
struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> rgb;

  friend bool operator==(const Pixels&, const Pixels&) = default;
};

/// A small decoding of a picture.
struct Thumbnail {
  Pixels pixels;
  /// The decoder met damage and went on: part of the picture may be gray or wrong.
  bool complained = false;
};

/// One field of an image file directory (TIFF 6.0, section 2), as EXIF, GPS and TIFF details are.
struct ImageProperty {
  std::uint16_t tag = 0;
  /// TIFF field type: 2 for text, 3 for 16-bit numbers, 5 for fractions, …
  std::uint16_t type = 0;
  /// The values, least significant byte first.
  std::vector<std::uint8_t> value;

  friend bool operator==(const ImageProperty&, const ImageProperty&) = default;
};

/// What a camera wrote down about a picture.
struct ImageProperties {
  std::vector<ImageProperty> exif;
  std::vector<ImageProperty> gps;
  std::vector<ImageProperty> tiff;
  /// 1 to 8 as in EXIF; absent when nothing tells.
  std::optional<int> orientation;

  bool empty() const { return exif.empty() && gps.empty() && tiff.empty() && !orientation; }
  friend bool operator==(const ImageProperties&, const ImageProperties&) = default;
};

/// How a thumbnail stands.
enum class Turn { asStored, byOrientation };

/// Decoding and encoding of pictures, which MediaKit leaves to libraries. Implementations keep no
/// state: one service may be used from several threads. Nothing throws; what cannot be done gives
/// nothing. The bytes are a stranger's: memory is bounded before it is taken.
class ImageService {
 public:
  ImageService() = default;
  ImageService(const ImageService&) = delete;
  ImageService& operator=(const ImageService&) = delete;
  ImageService(ImageService&&) = delete;
  ImageService& operator=(ImageService&&) = delete;
  virtual ~ImageService() = default;

  /// Images in a JPEG or RAW file whose header can be read; 0 when the bytes are neither.
  virtual std::size_t imageCount(ByteView image) const = 0;

  /// The picture itself, not one stored beside it, decoded to at most `maxPixels` on its long side.
  /// Never enlarged.
  virtual std::optional<Thumbnail> thumbnail(ByteView image, int maxPixels, Turn turn) const = 0;

  /// What the file tells about its picture, without maker notes and without what describes how the
  /// file stores its data.
  virtual ImageProperties properties(ByteView image) const = 0;

  /// The JPEG with these details set over its own. Its compressed picture stays byte for byte.
  virtual std::optional<std::vector<std::uint8_t>> withProperties(
      ByteView jpeg, const ImageProperties& properties) const = 0;

  /// `quality` from 0 to 1.
  virtual std::optional<std::vector<std::uint8_t>> encodeJPEG(const Pixels& pixels,
                                                              double quality) const = 0;
};

}  // namespace tallowmark
