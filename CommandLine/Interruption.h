// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// Control-C and its kin as a request to stop, so that half-written copies are cleared away. A
/// second signal ends the program at once.
namespace Interruption {

/// Starts listening; also keeps a closed pipe or a file-size limit from ending the program before
/// it has cleared up. Call once, before any thread starts.
void listen();

StopToken token();

/// The number of the signal that came; 0 for none.
int signal();

}  // namespace Interruption
}  // namespace tallowmark
