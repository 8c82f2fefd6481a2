// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "MediaKit/Rescue/FileState.h"
#include "MediaKit/Rescue/SavedCopy.h"
#include "TallowmarkRepair/Model/Clip.h"

namespace tallowmark {

/// What the list says of a repair's result.
Clip::Summary summaryOf(const CopyFacts& facts);

/// The state that an item has after checking.
Clip::State stateAfterChecking(const FileState::Any& found);

}  // namespace tallowmark
