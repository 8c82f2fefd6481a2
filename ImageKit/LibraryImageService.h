// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "MediaKit/Photo/ImageService.h"

namespace tallowmark {

/// Pictures through libjpeg-turbo (decoding and encoding JPEG), LibRaw (decoding RAW files) and
/// Exiv2 (camera details). Decoders are given at most a gigabyte; what claims to need more is not
/// decoded.
class LibraryImageService final : public ImageService {
 public:
  LibraryImageService();

  std::size_t imageCount(ByteView image) const override;
  std::optional<Thumbnail> thumbnail(ByteView image, int maxPixels, Turn turn) const override;
  ImageProperties properties(ByteView image) const override;
  std::optional<std::vector<std::uint8_t>> withProperties(
      ByteView jpeg, const ImageProperties& properties) const override;
  std::optional<std::vector<std::uint8_t>> encodeJPEG(const Pixels& pixels,
                                                      double quality) const override;
};

}  // namespace tallowmark
