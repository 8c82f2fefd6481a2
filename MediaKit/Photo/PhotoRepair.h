// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>

#include "MediaKit/Photo/ImageService.h"
#include "MediaKit/Photo/JPEGRepair.h"

/// Repairs of photos as programs offer them: structure and decoder together.
namespace tallowmark {

/// Repairs a photo with JPEGRepair and makes sure that the result opens and is a picture, not what
/// a wrong reference makes of the data. Throws MediaError::unsupported with the user's sentence.
JPEGRepair::Repaired repairPhoto(ByteView photo, std::optional<ByteView> reference,
                                 const ImageService& images);

/// Writes a small JPEG of a picture, upright and at most `maxPixels` on its long side, in place of
/// what `destination` held. False when the picture does not decode or the file cannot be written.
bool makePhotoPreview(ByteView image, const std::filesystem::path& destination, int maxPixels,
                      const ImageService& images);

}  // namespace tallowmark
