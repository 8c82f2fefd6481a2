// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#include "MediaKit/Naming/Kind.h"
#include "MediaKit/Rescue/FileState.h"

namespace tallowmark {

/// Says what is wrong with a file, which is only read. Every failure is a state; never throws but
/// for want of memory.
FileState::Any checkFile(const std::filesystem::path& file, Kind kind);

/// The same for a photo.
FileState::Any checkPhoto(const std::filesystem::path& photo);

}  // namespace tallowmark
