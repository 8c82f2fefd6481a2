// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "MediaKit/Interleaving/TrackOrder.h"

namespace tallowmark {

/// How a reference's tracks take turns.
struct TurnTaking {
  std::size_t tracks = 2;
  /// The fewest blocks of each track in a gap.
  std::size_t leastShare = 0;
  /// All of one track first; else also one of each in turn.
  bool isByGap = false;
};

/// Rows of a clip in which its tracks cannot be trusted to take turns as the reference's do: one of
/// them has ended there, or they begin apart. Gaps tell it whose blocks cannot be shared out
/// evenly, and chunks that are too short. True for each such row.
std::vector<bool> rowsOutOfTurn(std::span<const TrackOrder::Row> rows, const TurnTaking& taking);

}  // namespace tallowmark
