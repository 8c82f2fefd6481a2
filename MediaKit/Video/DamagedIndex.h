// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark::DamagedIndex {

/// Whether the index in `moov`, of which `movie` was read, is overwritten so that pictures or sound
/// are gone in players: boxes and tables that contradict one another, settings of a decoder that
/// are zeros. Reads no more of the clip than that and one picture's heads. Throws
/// MediaError::malformed, DeviceError.
bool isDamaged(const Movie& movie, const Box& moov, const ByteSource& clip);

}  // namespace tallowmark::DamagedIndex
