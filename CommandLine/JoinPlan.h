// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "CommandLine/Items.h"
#include "MediaKit/Rescue/SavedJoin.h"

namespace tallowmark {

/// One recording that is to be made whole.
struct PlannedJoin {
  /// In playing order.
  std::vector<std::filesystem::path> parts;
  /// Bytes of all parts.
  std::uint64_t size = 0;
  /// Names of parts that the camera's numbering promises and that are not there.
  std::vector<std::string> missing;
  /// What is to be said of the parts: one is missing, one is no clip. Empty when nothing is.
  std::string note;
  /// False where the parts that are there cannot be joined: the note says why.
  bool joinable = true;
};

/// What became of one; no end when the run was stopped first.
struct JoinOutcome {
  PlannedJoin join;
  std::optional<JoinState::Any> end;
};

/// All the items as one join, in name order.
PlannedJoin joinInNameOrder(std::span<const Item> items);

/// The split recordings among the items, by the names that cameras give. Recordings that lack a
/// part, and items that cannot be looked at, are told in joins of their own.
std::vector<PlannedJoin> findJoins(std::span<const Item> items);

}  // namespace tallowmark
