// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Video/PictureDecoder.h"

namespace tallowmark {

/// Decodes every picture of a small MP4 or MOV clip by the program ffmpeg, as a child that is held
/// in memory and time, may write no file and opens no other: damaged media is never decoded in this
/// process. Nothing when there is no ffmpeg, or when it was cut off. Throws Stopped.
std::optional<DecodedPictures> decodePictures(const std::filesystem::path& clip,
                                              const StopToken& stop);

}  // namespace tallowmark
