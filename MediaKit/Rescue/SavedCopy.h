// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Naming/Kind.h"
#include "MediaKit/Photo/ImageService.h"
#include "MediaKit/Photo/JPEGRepair.h"
#include "MediaKit/Rescue/LearntClip.h"
#include "MediaKit/Rescue/OpenedFile.h"
#include "MediaKit/Video/PictureDecoder.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark {

/// A file that does not open, and what it is repaired with.
struct DamagedFile {
  std::filesystem::path path;
  Kind kind = Kind::video;
  /// A good file of the same kind from the same camera; RAW files need none.
  std::optional<std::filesystem::path> reference;
  /// What an earlier look at the clip gave, if any; used while the clip is the same.
  std::shared_ptr<const LearntClip> learnt = nullptr;
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

/// A photo that was repaired, or the picture of a RAW file, in memory.
struct MadePicture {
  std::vector<std::uint8_t> jpeg;
  CopyFacts facts;
  /// The original's time.
  timespec modified{};
};

/// Repairs a photo or RAW file without writing anything. Throws as saveRepairedCopy.
MadePicture repairPicture(const DamagedFile& photo, const ImageService& images,
                          const StopToken& stop, const FileOpener& open = openFile);

/// A copy that stands complete in its folder.
struct SavedCopy {
  std::filesystem::path path;
  CopyFacts facts;
};

/// Repairs a file straight into `folder`, under a name that replaces nothing and with the
/// original's modification time; there is no partial file when it throws. Throws MediaError,
/// DeviceError, Stopped; unsupported with a sentence when the folder has not the room or the file
/// changes meanwhile. Where `decoder` can, pictures of rebuilt clips are tried first.
SavedCopy saveRepairedCopy(const DamagedFile& file, const std::filesystem::path& folder,
                           const ImageService& images, const Progress& progress,
                           const StopToken& stop, const FileOpener& open = openFile,
                           const PictureDecoder& decoder = {});

}  // namespace tallowmark
