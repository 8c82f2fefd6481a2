// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <cstddef>
#include <optional>
#include <utility>

#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/Join.h"

/// What rows and panes say of single items.
namespace tallowmark::ItemTexts {

/// "4:05", "1:02:03".
QString duration(double seconds);

/// What a row says of a file besides its state.
struct RowFacts {
  /// The file serves as a reference.
  bool isReference = false;
  /// Its place in a split recording, from 1, and the number of parts.
  std::optional<std::pair<std::size_t, std::size_t>> part;
};

/// The status line of a file's row.
QString rowStatus(const Clip& clip, const RowFacts& facts);

/// The status line of a join's row.
QString rowStatus(const Join& join);

/// The first sentences of a join's detail pane.
QString introduction(const Join& join);

/// What stands where the preview of a repaired file of that kind should be, but could not be made.
QString missingPreview(Kind kind);

}  // namespace tallowmark::ItemTexts
