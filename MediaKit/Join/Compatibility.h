// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <span>
#include <string>

#include "MediaKit/Join/Part.h"

namespace tallowmark::ClipJoin {

/// Why the parts, in playing order, cannot become one clip without re-encoding: one sentence that
/// names the first part that does not fit. Nothing when they fit. Never throws.
std::optional<std::string> incompatibility(std::span<const Part> parts);

}  // namespace tallowmark::ClipJoin
