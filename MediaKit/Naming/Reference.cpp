// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/Reference.h"

#include <algorithm>
#include <string>

#include "MediaKit/Naming/CameraKey.h"

namespace tallowmark {

std::optional<std::size_t> chooseReference(const NamedFile& damaged,
                                           std::span<const NamedFile> healthy,
                                           std::span<const NamedFile> broken) {
  if (damaged.kind == Kind::raw) {
    return std::nullopt;
  }
  const std::string key = cameraKey(damaged.path);
  const std::string extension = lowerCaseExtension(damaged.path);
  const auto rankOf = [&](const std::filesystem::path& candidate) {
    const std::string candidateKey = cameraKey(candidate);
    if (candidateKey == key) {
      return lowerCaseExtension(candidate) == extension ? 0 : 1;
    }
    const bool shared = std::any_of(broken.begin(), broken.end(), [&](const NamedFile& file) {
      return cameraKey(file.path) == candidateKey;
    });
    return shared ? 2 : 3;
  };
  std::optional<std::size_t> best;
  int bestRank = 4;
  for (std::size_t i = 0; i < healthy.size(); ++i) {
    if (healthy[i].kind != damaged.kind) {
      continue;
    }
    if (const int rank = rankOf(healthy[i].path); rank < bestRank) {
      best = i;
      bestRank = rank;
    }
  }
  return best;
}

}  // namespace tallowmark
