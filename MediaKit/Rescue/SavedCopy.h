// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark {

/// A repaired clip that stands complete in its folder.
struct SavedClip {
  std::filesystem::path path;
  VideoRepair::Result result;
};

/// Repairs a clip straight into `folder`, under a name that replaces nothing and with the
/// original's modification time; there is no partial file when it throws. Throws MediaError,
/// DeviceError, Stopped; unsupported with a sentence when the folder has not the room.
SavedClip saveRepairedClip(const std::filesystem::path& clip,
                           const std::optional<std::filesystem::path>& reference,
                           const std::filesystem::path& folder, const Progress& progress,
                           const StopToken& stop);

}  // namespace tallowmark
