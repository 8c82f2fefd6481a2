// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Photo/ImageService.h"

/// Camera details through Exiv2: EXIF, GPS, descriptive TIFF fields and the orientation. Left out
/// is what would be wrong in another file: maker notes, whose offsets point into the old one, and
/// the fields that say how the old one stores its data.
namespace tallowmark {

/// Sets the library up; before the first use from several threads.
void prepareCameraDetails();

/// Empty when the file holds none that can be read.
ImageProperties cameraDetails(ByteView image);

/// The JPEG with the details set over its own, and its own size in them. Nothing when they do not
/// fit into a JPEG's EXIF segment or the compressed picture would not stay byte for byte.
std::optional<std::vector<std::uint8_t>> withCameraDetails(ByteView jpeg,
                                                           const ImageProperties& properties);

}  // namespace tallowmark
