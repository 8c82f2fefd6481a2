// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Photo/ImageService.h"

/// JPEG through libjpeg-turbo. Warnings of the library are complaints, its errors are failures.
namespace tallowmark {

/// Whether the library reads the header and knows the coding process.
bool jpegHeaderOpens(ByteView jpeg);

/// The picture with its long side at most `maxPixels`, decoded at the coarsest scale that does.
std::optional<Thumbnail> reducedJPEG(ByteView jpeg, int maxPixels);

std::optional<std::vector<std::uint8_t>> encodedJPEG(const Pixels& pixels, double quality);

}  // namespace tallowmark
