// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <variant>
#include <vector>

#include "MediaKit/Rescue/SavedCopy.h"
#include "MediaKit/Rescue/SavedJoin.h"

namespace tallowmark {

/// Makes a small clip of at most so many seconds for a player, in place of what `destination` held.
/// Returns false, and leaves nothing there, when that cannot be done. Throws Stopped, nothing else
/// but for want of memory.
using ClipPreviewer =
    std::function<bool(const std::filesystem::path& clip, const std::filesystem::path& destination,
                       double seconds, const StopToken& stop)>;

/// Where a preview goes. Both files lie in a folder that is made when it is missing.
struct PreviewFiles {
  /// What is shown.
  std::filesystem::path preview;
  /// What it is made from; there only for so long.
  std::filesystem::path full;
};

/// A repair that can be looked at before it is saved.
struct RepairPreview {
  /// Of the whole repair.
  CopyFacts facts;
  /// Of clips: spares the save the work.
  std::shared_ptr<const LearntClip> learnt;
  /// Whether there is something to look at. That there is not fails no repair.
  bool viewable = false;
};

/// Works out a file's repair and makes a preview of what plays first. Throws MediaError,
/// DeviceError for originals that cannot be read, Stopped.
RepairPreview previewRepair(const DamagedFile& file, const PreviewFiles& files,
                            const ImageService& images, const ClipPreviewer& previewer,
                            const Progress& progress, const StopToken& stop,
                            const FileOpener& open = openFile, const PictureDecoder& decoder = {});

/// One part of a recording as a list shows it.
struct PartFacts {
  /// Bytes of the file.
  std::uint64_t size = 0;
  double seconds = 0;

  friend bool operator==(const PartFacts&, const PartFacts&) = default;
};

namespace JoinState {
/// The parts fit together.
struct Prepared {
  ClipJoin::Result result;
  /// Of each part, in playing order.
  std::vector<PartFacts> parts;
  /// Whether the seam can be looked at.
  bool viewable = false;
};
using Preparation = std::variant<Prepared, Incompatible, Failed>;
}  // namespace JoinState

/// Checks that the parts, in playing order, fit together, and makes a preview of their first seam.
/// Throws Stopped, nothing else but for want of memory.
JoinState::Preparation previewJoin(std::span<const std::filesystem::path> parts,
                                   const PreviewFiles& files, const ClipPreviewer& previewer,
                                   const StopToken& stop);

}  // namespace tallowmark
