// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <span>

#include "MediaKit/Rescue/ReferenceChoice.h"
#include "TallowmarkRepair/Model/Clip.h"

namespace tallowmark {

/// The reference that stands in the sidebar.
struct Reference {
  std::filesystem::path file;
  /// Of clips; of photos where it was chosen automatically.
  std::optional<ClipInfo> info;
  bool chosenByUser = false;

  friend bool operator==(const Reference&, const Reference&) = default;
};

/// Which reference goes with which item.
namespace References {

/// The first healthy clip whose camera key a broken one shares, else the first healthy one.
std::optional<Reference> automatic(std::span<const Clip> clips);

/// The healthy clips, ranked for any of the others.
ReferenceChoice choiceAmong(std::span<const Clip> clips);

/// What `clip` is repaired with: the user's choice where its kind fits, and no other then; else
/// what the choice among the healthy clips gives. Empty when it cannot be repaired now.
RepairTries triesFor(const Clip& clip, const std::optional<Reference>& reference,
                     const ReferenceChoice& choice);

/// How many of the clips wait for a reference that is not there.
std::size_t waiting(std::span<const Clip> clips, const std::optional<Reference>& reference);

}  // namespace References
}  // namespace tallowmark
