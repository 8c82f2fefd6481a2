// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/Reference.h"

#include <array>
#include <set>
#include <string>
#include <utility>

#include "MediaKit/Naming/CameraKey.h"

namespace tallowmark {

ReferenceRanking::ReferenceRanking(std::span<const NamedFile> healthy,
                                   std::span<const NamedFile> broken) {
  std::set<std::string> brokenKeys;
  for (const NamedFile& file : broken) brokenKeys.insert(cameraKey(file.path));
  for (const NamedFile& file : healthy) {
    std::string key = cameraKey(file.path);
    const bool shared = brokenKeys.contains(key);
    candidates_.push_back({file.kind, std::move(key), lowerCaseExtension(file.path), shared});
  }
}

std::vector<std::size_t> ReferenceRanking::rank(const NamedFile& damaged) const {
  std::array<std::vector<std::size_t>, 4> ranks;
  if (damaged.kind == Kind::raw) {
    return {};
  }
  const std::string key = cameraKey(damaged.path);
  const std::string extension = lowerCaseExtension(damaged.path);
  for (std::size_t i = 0; i < candidates_.size(); ++i) {
    const Candidate& candidate = candidates_[i];
    if (candidate.kind != damaged.kind) {
      continue;
    }
    if (candidate.key == key) {
      ranks[candidate.extension == extension ? 0 : 1].push_back(i);
    } else {
      ranks[candidate.sharesKeyWithBroken ? 2 : 3].push_back(i);
    }
  }
  std::vector<std::size_t> all;
  for (const auto& rank : ranks) all.insert(all.end(), rank.begin(), rank.end());
  return all;
}

std::vector<std::size_t> rankReferences(const NamedFile& damaged,
                                        std::span<const NamedFile> healthy,
                                        std::span<const NamedFile> broken) {
  return ReferenceRanking(healthy, broken).rank(damaged);
}

std::optional<std::size_t> chooseReference(const NamedFile& damaged,
                                           std::span<const NamedFile> healthy,
                                           std::span<const NamedFile> broken) {
  const std::vector<std::size_t> ranked = rankReferences(damaged, healthy, broken);
  return ranked.empty() ? std::nullopt : std::optional(ranked.front());
}

}  // namespace tallowmark
