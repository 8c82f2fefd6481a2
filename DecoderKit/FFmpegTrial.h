// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>

namespace tallowmark {

/// Whether every picture of a small clip decodes to its last corner, tried by the program ffmpeg as
/// a child: damaged media is never decoded in this process. Nothing when there is no ffmpeg.
std::optional<bool> picturesDecode(const std::filesystem::path& clip);

}  // namespace tallowmark
