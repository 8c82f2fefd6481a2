// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Container/ClipInfo.h"
#include "MediaKit/Naming/Reference.h"

namespace tallowmark {

/// A file that opens, and its facts.
struct HealthyFile {
  NamedFile file;
  ClipInfo info;
};

/// Which of the healthy files damaged ones are repaired with.
class ReferenceChoice {
 public:
  ReferenceChoice(std::span<const HealthyFile> healthy, std::span<const NamedFile> broken);

  /// The best reference of every sort there is, best first. Clips alike in codec, size, rate and
  /// sound teach the same: a second one of a sort that failed would fail, too.
  std::vector<std::filesystem::path> referencesFor(const NamedFile& damaged) const;

 private:
  ReferenceRanking ranking_;
  std::vector<std::filesystem::path> paths_;
  std::vector<ClipInfo> facts_;
};

/// What a file is repaired with, one after the other until one serves; absent where the file itself
/// has all it needs.
using RepairTries = std::vector<std::optional<std::filesystem::path>>;

/// Calls `repair` with each of the tries until one does not throw MediaError, and returns that one.
/// Throws what the last threw, or whatever else one threw. There must be a try.
std::optional<std::filesystem::path> firstThatServes(
    const RepairTries& tries,
    const std::function<void(const std::optional<std::filesystem::path>&)>& repair);

}  // namespace tallowmark
