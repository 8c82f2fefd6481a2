// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Naming/Kind.h"
#include "MediaKit/Rescue/FileState.h"

namespace tallowmark {

/// One thing that a command was given, or found in a folder that it was given.
struct Item {
  /// As given; what a folder holds starts with the folder as given.
  std::filesystem::path path;
  /// Absent for what is no kind of file that the program takes.
  std::optional<Kind> kind;
  /// 0 when it cannot be read.
  std::uint64_t size = 0;
};

/// Opens folders and drops what was given twice. In the order given, the files of a folder in name
/// order.
std::vector<Item> itemsFrom(std::span<const std::filesystem::path> paths);

/// Says what is wrong with an item, whatever it is.
FileState::Any checkItem(const Item& item);

}  // namespace tallowmark
