// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "CommandLine/Arguments.h"

/// One function a command. Each prints results on standard output and returns the exit status.
namespace tallowmark {

int runCheck(const CheckRequest& request);
int runRepair(const RepairRequest& request);
int runJoin(const JoinRequest& request);
int runInspect(const InspectRequest& request);
int runDisks(const DisksRequest& request);
int runImage(const ImageRequest& request);

}  // namespace tallowmark
