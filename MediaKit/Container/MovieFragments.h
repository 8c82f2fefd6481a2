// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/Movie.h"

/// Movie fragments (ISO/IEC 14496-12 §8.8): some phones, drones and apps write a recording piece by
/// piece, each with an index of its own, so that a crash costs the last piece only.
namespace tallowmark::MovieFragments {

/// Appends to the tracks of `movie`, which `moov` describes, the samples of all whole fragments of
/// the file. Does nothing when the index announces none. Counts that claim more than their bytes
/// hold end there. Where the boxes do not lead to the file's end, goes on with the next fragment
/// behind that is the same recording's, and notes what lies between as lost. Throws
/// MediaError::malformed for an implausibly large box, and the source's errors.
void append(const Box& moov, const BoxReader& reader, Movie& movie);

}  // namespace tallowmark::MovieFragments
