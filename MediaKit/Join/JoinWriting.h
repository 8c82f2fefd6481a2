// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <span>

#include "DeviceKit/FileSink.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Join/JoinPlan.h"

namespace tallowmark::ClipJoin {

/// Opens the parts and writes the planned movie. Throws as ClipJoin::join.
void writeJoined(std::span<const Part> parts, const Plan& joined, FileSink& destination,
                 const Progress& progress, const StopToken& stop);

}  // namespace tallowmark::ClipJoin
