// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>

#include "MediaKit/Container/ClipInfo.h"
#include "MediaKit/Rescue/SavedCopy.h"

namespace tallowmark {

/// What a repair did, for the pane that tells it in full; a summary goes with the item's state.
struct RepairDetails {
  CopyFacts facts;
  /// Of the repaired clip; absent for pictures.
  std::optional<ClipInfo> info;
  /// The clip's index was made anew.
  bool rebuilt = false;
  /// How long the clip was when it was whole, where its own index tells.
  std::optional<double> secondsRecorded;
  /// The clip goes on behind what its own index describes and the file lacks.
  bool isDamagedInside = false;
  /// What the file was repaired with.
  std::optional<std::filesystem::path> reference;
};

}  // namespace tallowmark
