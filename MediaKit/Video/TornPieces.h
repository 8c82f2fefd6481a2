// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

/// Clips of which a card lost some clusters, or put others in. Where it is known how many bytes
/// that were, since the next piece (movie fragment) or the file ends so much sooner or later, the
/// index still tells where samples are that lie behind.
namespace tallowmark::TornPieces {

/// Whether the end of `movie` is such that mend would change it. Throws DeviceError.
bool isMended(const Movie& movie, const ByteSource& clip);

/// Corrects the places of such samples in `movie`. What is torn, or cannot be told, is taken out
/// and noted as a lost piece, or belongs to the one that follows it. Throws DeviceError.
void mend(Movie& movie, const ByteSource& clip);

}  // namespace tallowmark::TornPieces
