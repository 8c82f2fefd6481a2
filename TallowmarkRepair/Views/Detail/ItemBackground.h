// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include "MediaKit/Rescue/Previewing.h"
#include "TallowmarkRepair/Model/RepairDetails.h"

namespace tallowmark {

/// What the model knows of a clip beside its record, and a pane tells.
struct ClipBackground {
  /// Absent until it is repaired.
  std::optional<RepairDetails> details;
  /// What it is, or would be, repaired with.
  std::optional<std::filesystem::path> reference;
  /// It is itself the reference that stands in the sidebar.
  bool isReference = false;
  /// The copy is being written, rather than the preview.
  bool isSaving = false;
  std::optional<std::filesystem::path> savedCopy;
  /// Its place in a split recording, from 1, and the number of parts.
  std::optional<std::pair<std::size_t, std::size_t>> splitPart;
};

/// The same of a join.
struct JoinBackground {
  /// Of each part, in playing order; empty until they are checked.
  std::vector<PartFacts> parts;
  /// A sentence on parts that are not there; empty where all are.
  QString missingParts;
  std::optional<std::filesystem::path> savedCopy;
};

}  // namespace tallowmark
