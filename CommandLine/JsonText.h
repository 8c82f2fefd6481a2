// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "CommandLine/Items.h"
#include "CommandLine/JoinPlan.h"
#include "CommandLine/RepairPlan.h"

/// What scripts read: one object a line, fields in a fixed order.
namespace tallowmark {

using Json = nlohmann::ordered_json;

/// One line of UTF-8; bytes of file names that are not UTF-8 become U+FFFD.
std::string lineOf(const Json& object);

Json checkJson(const Item& item, const FileState::Any& state);
Json repairJson(const Item& item, const RepairOutcome& outcome);
/// The join has an end.
Json joinJson(const JoinOutcome& outcome);

}  // namespace tallowmark
