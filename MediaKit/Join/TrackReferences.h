// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>

#include "MediaKit/Container/Movie.h"

namespace tallowmark::ClipJoin {

/// Takes the references to tracks other than `carried` out of the track's reference box, and the
/// box itself when nothing is left in it (ISO/IEC 14496-12 §8.3.3): a reference to a track that is
/// not there makes players refuse a clip. `carried` is in rising order.
void keepReferencesTo(std::span<const std::uint32_t> carried, Track& track);

}  // namespace tallowmark::ClipJoin
