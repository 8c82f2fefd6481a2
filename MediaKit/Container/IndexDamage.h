// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/Movie.h"

/// Whether an index that can be read was overwritten in part. What a parser makes do with then
/// describes another clip: players show nothing, or play picture bytes as sound.
namespace tallowmark::IndexDamage {

/// Whether boxes or tables of pictures or sound in `moov`, of which `movie` was read, contradict
/// one another as no recorder writes them. Tables that are empty, and small differences between
/// them, contradict nothing. Throws MediaError::malformed for an implausibly large box, and the
/// source's errors.
bool isIn(const Box& moov, const Movie& movie, const BoxReader& reader);

}  // namespace tallowmark::IndexDamage
