// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "MediaKit/Naming/Kind.h"

namespace tallowmark {

/// A file by what its name tells.
struct NamedFile {
  std::filesystem::path path;
  Kind kind = Kind::video;
};

/// Ranks healthy files by their names for any number of damaged ones; what the names tell is worked
/// out once.
class ReferenceRanking {
 public:
  ReferenceRanking(std::span<const NamedFile> healthy, std::span<const NamedFile> broken);

  /// As rankReferences.
  std::vector<std::size_t> rank(const NamedFile& damaged) const;

 private:
  struct Candidate {
    Kind kind = Kind::video;
    std::string key;
    std::string extension;
    bool sharesKeyWithBroken = false;
  };
  std::vector<Candidate> candidates_;
};

/// Which of the healthy files can teach how to repair `damaged`, by number, best first: of its kind
/// those that share camera key and extension, then those that share the key, then those whose key
/// any of the `broken` files shares, then the rest; in their given order within each. None for RAW
/// files, which need none.
std::vector<std::size_t> rankReferences(const NamedFile& damaged,
                                        std::span<const NamedFile> healthy,
                                        std::span<const NamedFile> broken);

/// The best of them; nothing when there is none.
std::optional<std::size_t> chooseReference(const NamedFile& damaged,
                                           std::span<const NamedFile> healthy,
                                           std::span<const NamedFile> broken);

}  // namespace tallowmark
