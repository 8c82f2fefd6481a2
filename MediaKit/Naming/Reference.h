// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>

#include "MediaKit/Naming/Kind.h"

namespace tallowmark {

/// A file by what its name tells.
struct NamedFile {
  std::filesystem::path path;
  Kind kind = Kind::video;
};

/// Which of the healthy files teaches how to repair `damaged`: of its kind the first that shares
/// camera key and extension, else the first that shares the key, else the first whose key any of
/// the `broken` files shares, else the first. Nothing when there is none of its kind, and for RAW
/// files, which need none.
std::optional<std::size_t> chooseReference(const NamedFile& damaged,
                                           std::span<const NamedFile> healthy,
                                           std::span<const NamedFile> broken);

}  // namespace tallowmark
