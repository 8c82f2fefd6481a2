// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "CommandLine/Items.h"
#include "CommandLine/JoinPlan.h"
#include "CommandLine/RepairPlan.h"

/// What people read, a line an item.
namespace tallowmark {

std::string checkSentence(const Item& item, const FileState::Any& state);
std::string repairSentence(const Item& item, const RepairOutcome& outcome);
/// The join has an end.
std::string joinSentence(const JoinOutcome& outcome);

/// "0:07", "12:05", "1:02:03".
std::string durationText(double seconds);

}  // namespace tallowmark
