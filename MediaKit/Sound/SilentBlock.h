// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "MediaKit/Sound/BlockWalk.h"

namespace tallowmark {

/// A block with these elements in which nothing sounds: no band is coded in any channel. Empty for
/// elements that depend on others.
std::vector<std::uint8_t> silentBlock(ElementPattern pattern);

}  // namespace tallowmark
