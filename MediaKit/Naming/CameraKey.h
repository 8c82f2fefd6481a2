// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

namespace tallowmark {

/// What a camera calls its files: the part of the file name before the first number, in upper case.
/// Files of one camera share it ("GX" of GX010123.MP4); empty for a name that starts with a number.
std::string cameraKey(const std::filesystem::path& file);

}  // namespace tallowmark
