// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QString>
#include <cstddef>
#include <span>

#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/Join.h"

/// Where the whole list stands, worked out from its items.
namespace tallowmark::FlowStatus {

/// Neither healthy nor being checked nor beyond the program.
bool isBroken(const Clip& clip);

/// Something is being checked, repaired, saved or joined.
bool isWorking(std::span<const Clip> clips, std::span<const Join> joins);

/// 0 add files, 1 repair, 2 save, 4 all done; 3 never.
int step(std::span<const Clip> clips, std::span<const Join> joins);

/// The line under the step bar. `waiting` is how many files wait for a reference.
QString text(std::span<const Clip> clips, std::span<const Join> joins, std::size_t waiting);

}  // namespace tallowmark::FlowStatus
