// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>

#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// Whether every picture of a small MP4 or MOV clip decodes to its last corner, tried by the
/// program ffmpeg as a child that is held in memory and time, may write no file and opens no other:
/// damaged media is never decoded in this process. Nothing when there is no ffmpeg, or when it was
/// cut off. Throws Stopped.
std::optional<bool> picturesDecode(const std::filesystem::path& clip, const StopToken& stop);

}  // namespace tallowmark
