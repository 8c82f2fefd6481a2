// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "MediaKit/Container/Box.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark::VideoRepair {

/// Where media data starts: in the first media-data box, also in one behind an index in front that
/// was overwritten, or where one should stand whose header was never written. 0 in a file without
/// any box. A basic rebuild does not look behind an overwritten index. Throws MediaError when
/// nothing can be there.
std::uint64_t mediaStart(const BoxReader& reader, Depth depth);

}  // namespace tallowmark::VideoRepair
