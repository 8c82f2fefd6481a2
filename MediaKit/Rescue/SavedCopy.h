// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <variant>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Naming/Kind.h"
#include "MediaKit/Photo/ImageService.h"
#include "MediaKit/Photo/JPEGRepair.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark {

/// A file that does not open, and what it is repaired with.
struct DamagedFile {
  std::filesystem::path path;
  Kind kind = Kind::video;
  /// A good file of the same kind from the same camera; RAW files need none.
  std::optional<std::filesystem::path> reference;
  /// How much of a clip without index comes back.
  VideoRepair::Depth depth = VideoRepair::Depth::full;
};

/// The picture that was stored in a RAW file.
struct RescuedPicture {
  int width = 0;
  int height = 0;
  /// It ends early: its bottom shows gray.
  bool incomplete = false;
  /// The camera details of the RAW file are in it.
  bool keptDetails = false;
};

/// What a copy of a clip, a photo, a RAW file holds.
using CopyFacts = std::variant<VideoRepair::Result, JPEGRepair::Result, RescuedPicture>;

/// A copy that stands complete in its folder.
struct SavedCopy {
  std::filesystem::path path;
  CopyFacts facts;
};

/// Repairs a file straight into `folder`, under a name that replaces nothing and with the
/// original's modification time; there is no partial file when it throws. Throws MediaError,
/// DeviceError, Stopped; unsupported with a sentence when the folder has not the room.
SavedCopy saveRepairedCopy(const DamagedFile& file, const std::filesystem::path& folder,
                           const ImageService& images, const Progress& progress,
                           const StopToken& stop);

}  // namespace tallowmark
