// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "CommandLine/Items.h"
#include "MediaKit/Rescue/ReferenceChoice.h"
#include "MediaKit/Rescue/SavedCopy.h"

namespace tallowmark {

/// What became of one item of a repair.
struct RepairOutcome {
  /// What checking found; a failed repair leaves its sentence here.
  FileState::Any state;
  /// The reference that was used.
  std::optional<std::filesystem::path> reference;
  /// The copy, when one was saved, and what it holds.
  std::optional<std::filesystem::path> output;
  CopyFacts facts;
};

/// What is to be done with each item, decided before anything is written.
struct RepairPlan {
  std::vector<Item> items;
  std::vector<FileState::Any> states;
  /// For each item the references to try, best first.
  std::vector<std::vector<std::filesystem::path>> references;

  /// Whether a copy can be made without a reference: the item was cut short, is a RAW file, or a
  /// photo that still has all it needs.
  bool isRepairableAlone(std::size_t item) const;
  /// What an item is repaired with, in turn.
  RepairTries tries(std::size_t item) const;
  /// Whether a copy can be made at all.
  bool isRepairable(std::size_t item) const;

  /// Chains for workInOrder: items whose copies want the same name follow each other, so that the
  /// first given gets the name and the next its counter form.
  std::vector<std::vector<std::size_t>> chains() const;
};

/// Chooses references among the healthy items, or takes the user's own choice for items of its
/// kind. A choice that cannot serve turns the items that need it into failed ones that say why.
RepairPlan planRepair(std::vector<Item> items, std::vector<FileState::Any> states,
                      const std::optional<std::filesystem::path>& chosen);

}  // namespace tallowmark
