// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <span>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Video/PictureDecoder.h"

namespace tallowmark {

/// Decodes every picture of small MP4 or MOV clips by one run of the program ffmpeg, as a child
/// that is held in memory and time, may write no file and opens no other: damaged media is never
/// decoded in this process. Nothing when there is no ffmpeg, or when it was cut off. Throws
/// Stopped.
std::optional<DecodedPictures> decodePictures(std::span<const std::filesystem::path> clips,
                                              const StopToken& stop);

}  // namespace tallowmark
