// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>

#include "MediaKit/Photo/ImageService.h"

/// RAW files through LibRaw.
namespace tallowmark {

/// Whether the library knows the camera's format and finds sensor data described in the file.
bool rawHeaderOpens(ByteView raw);

/// The sensor's picture with its long side at most `maxPixels`, upright or not as it is stored.
std::optional<Thumbnail> reducedRAW(ByteView raw, int maxPixels);

}  // namespace tallowmark
