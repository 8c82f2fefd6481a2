// SPDX-License-Identifier: GPL-3.0-or-later
#include "ImageKit/LibraryImageService.h"

#include "ImageKit/CameraDetails.h"
#include "ImageKit/JPEGDecoder.h"
#include "ImageKit/PixelReducer.h"
#include "ImageKit/RAWDecoder.h"

namespace tallowmark {
namespace {

bool isJPEG(ByteView image) {
  return image.size() >= 3 && image[0] == 0xFF && image[1] == 0xD8 && image[2] == 0xFF;
}

}  // namespace

LibraryImageService::LibraryImageService() {
  prepareCameraDetails();
}

std::size_t LibraryImageService::imageCount(ByteView image) const {
  const bool opens = isJPEG(image) ? jpegHeaderOpens(image) : rawHeaderOpens(image);
  return opens ? 1 : 0;
}

std::optional<Thumbnail> LibraryImageService::thumbnail(ByteView image, int maxPixels,
                                                        Turn turn) const {
  if (maxPixels < 1) {
    return std::nullopt;
  }
  auto small = isJPEG(image) ? reducedJPEG(image, maxPixels) : reducedRAW(image, maxPixels);
  if (small && turn == Turn::byOrientation) {
    const int orientation = cameraDetails(image).orientation.value_or(1);
    small->pixels = turned(std::move(small->pixels), orientation);
  }
  return small;
}

ImageProperties LibraryImageService::properties(ByteView image) const {
  return cameraDetails(image);
}

std::optional<std::vector<std::uint8_t>> LibraryImageService::withProperties(
    ByteView jpeg, const ImageProperties& properties) const {
  return withCameraDetails(jpeg, properties);
}

std::optional<std::vector<std::uint8_t>> LibraryImageService::encodeJPEG(const Pixels& pixels,
                                                                         double quality) const {
  return encodedJPEG(pixels, quality);
}

}  // namespace tallowmark
