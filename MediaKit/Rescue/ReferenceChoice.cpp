// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/ReferenceChoice.h"

#include <algorithm>

#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

namespace {

// Photos of one size may differ in their tables, which their facts do not tell. Each try decodes a
// picture, and a card holds thousands.
constexpr std::size_t mostPhotosTried = 8;

std::vector<NamedFile> namesOf(std::span<const HealthyFile> healthy) {
  std::vector<NamedFile> names;
  for (const HealthyFile& file : healthy) names.push_back(file.file);
  return names;
}

}  // namespace

ReferenceChoice::ReferenceChoice(std::span<const HealthyFile> healthy,
                                 std::span<const NamedFile> broken)
    : ranking_(namesOf(healthy), broken) {
  for (const HealthyFile& file : healthy) {
    paths_.push_back(file.file.path);
    facts_.push_back(file.info);
    facts_.back().seconds = 0;
  }
}

std::vector<std::filesystem::path> ReferenceChoice::referencesFor(const NamedFile& damaged) const {
  std::vector<std::filesystem::path> references;
  std::vector<ClipInfo> sorts;
  for (const std::size_t best : ranking_.rank(damaged)) {
    const bool another = damaged.kind == Kind::photo
                             ? sorts.size() < mostPhotosTried
                             : std::find(sorts.begin(), sorts.end(), facts_[best]) == sorts.end();
    if (another) {
      sorts.push_back(facts_[best]);
      references.push_back(paths_[best]);
    }
  }
  return references;
}

std::optional<std::filesystem::path> firstThatServes(
    const RepairTries& tries,
    const std::function<void(const std::optional<std::filesystem::path>&)>& repair) {
  for (std::size_t i = 0;; ++i) {
    try {
      repair(tries.at(i));
      return tries[i];
    } catch (const MediaError&) {
      if (i + 1 == tries.size()) {
        throw;
      }
    }
  }
}

}  // namespace tallowmark
