// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "MediaKit/Container/Movie.h"

/// Clips written in pieces (movie fragments), some of which have lost the index that says what is
/// in them.
namespace tallowmark::VideoRepair {

/// Puts into `movie` what `rebuilt`, made of the same clip by what `movie` itself teaches, has
/// found in the lost pieces: at the time that is left for it, tracks that the rebuild finds again
/// elsewhere only. What it has behind `mediaEnd` is no part of the clip. Sound ahead of a lost
/// piece that is not found again is taken out. Returns how many bytes were put in.
std::uint64_t fillLostPieces(Movie& movie, Movie rebuilt, std::uint64_t mediaEnd);

/// The track with this number; null for none.
const Track* trackOf(const Movie& movie, std::uint32_t trackID);

inline constexpr double mostOfIt = 0.95;

/// Whether a rebuild finds that share of what the index knows of a track.
bool isFoundAgain(const SampleList& known, const SampleList& rebuilt, double enough = mostOfIt);

/// Keeps tracks in step of which the first pieces are lost: one that goes on later than another
/// starts that much later.
void delayLostStarts(Movie& movie);

}  // namespace tallowmark::VideoRepair
