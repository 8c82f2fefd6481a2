// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#include "MediaKit/Naming/Kind.h"
#include "MediaKit/Rescue/FileState.h"
#include "MediaKit/Rescue/OpenedFile.h"

namespace tallowmark {

/// Says what is wrong with a file, which is only read. Every failure is a state; throws what ends
/// the reading of a stoppable file, Stopped, and for want of memory.
FileState::Any checkFile(const std::filesystem::path& file, Kind kind,
                         const FileOpener& open = openFile);

/// The same for a photo.
FileState::Any checkPhoto(const std::filesystem::path& photo, const FileOpener& open = openFile);

}  // namespace tallowmark
