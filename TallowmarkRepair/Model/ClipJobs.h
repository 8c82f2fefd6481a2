// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "MediaKit/Rescue/FileState.h"
#include "MediaKit/Rescue/ReferenceChoice.h"
#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/RepairDetails.h"
#include "TallowmarkRepair/Model/Surroundings.h"

/// The work on one file, for any thread: it touches neither the model nor its items. Throws
/// Stopped; everything else that goes wrong is in the result.
namespace tallowmark::ClipJobs {

struct Check {
  std::filesystem::path file;
  Kind kind = Kind::video;
};
FileState::Any run(const Check& job, const Surroundings& with, const StopToken& stop);

struct Preview {
  std::filesystem::path file;
  Kind kind = Kind::video;
  /// At least one.
  RepairTries tries;
  PreviewFiles files;
};
struct PreviewResult {
  /// Preview or Failed.
  Clip::State state;
  /// The reference that served, or was the last to be tried.
  std::optional<std::filesystem::path> reference;
  /// Absent when it failed.
  std::optional<RepairDetails> details;
  std::shared_ptr<const LearntClip> learnt;
  /// Absent when none could be made.
  std::optional<std::filesystem::path> preview;
};
PreviewResult run(const Preview& job, const Surroundings& with, const Progress& progress,
                  const StopToken& stop);

struct Save {
  DamagedFile file;
  std::filesystem::path folder;
};
struct SaveResult {
  /// Saved or Failed.
  Clip::State state;
  /// The copy.
  std::optional<std::filesystem::path> copy;
};
SaveResult run(const Save& job, const Surroundings& with, const Progress& progress,
               const StopToken& stop);

}  // namespace tallowmark::ClipJobs
