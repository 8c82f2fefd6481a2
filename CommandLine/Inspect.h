// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <iosfwd>

#include "CommandLine/Arguments.h"

/// What the readers see in one file of each kind, as one JSON object or as lines for people. They
/// throw DeviceError and MediaError.
namespace tallowmark {

void inspectMovie(const InspectRequest& request, std::ostream& out);
void inspectPhoto(const InspectRequest& request, std::ostream& out);
void inspectRaw(const InspectRequest& request, std::ostream& out);

}  // namespace tallowmark
