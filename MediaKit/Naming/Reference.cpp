// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/Reference.h"

#include <array>
#include <set>
#include <string>

#include "MediaKit/Naming/CameraKey.h"

namespace tallowmark {

std::vector<std::size_t> rankReferences(const NamedFile& damaged,
                                        std::span<const NamedFile> healthy,
                                        std::span<const NamedFile> broken) {
  std::array<std::vector<std::size_t>, 4> ranks;
  if (damaged.kind == Kind::raw) {
    return {};
  }
  const std::string key = cameraKey(damaged.path);
  const std::string extension = lowerCaseExtension(damaged.path);
  std::set<std::string> brokenKeys;
  for (const NamedFile& file : broken) brokenKeys.insert(cameraKey(file.path));

  for (std::size_t i = 0; i < healthy.size(); ++i) {
    const std::string candidateKey = cameraKey(healthy[i].path);
    if (healthy[i].kind != damaged.kind) {
      continue;
    }
    if (candidateKey == key) {
      ranks[lowerCaseExtension(healthy[i].path) == extension ? 0 : 1].push_back(i);
    } else {
      ranks[brokenKeys.contains(candidateKey) ? 2 : 3].push_back(i);
    }
  }
  std::vector<std::size_t> all;
  for (const auto& rank : ranks) all.insert(all.end(), rank.begin(), rank.end());
  return all;
}

std::optional<std::size_t> chooseReference(const NamedFile& damaged,
                                           std::span<const NamedFile> healthy,
                                           std::span<const NamedFile> broken) {
  const std::vector<std::size_t> ranked = rankReferences(damaged, healthy, broken);
  return ranked.empty() ? std::nullopt : std::optional(ranked.front());
}

}  // namespace tallowmark
