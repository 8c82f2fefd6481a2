// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "MediaKit/Container/Movie.h"

namespace tallowmark::VideoRepair {

/// Lets the tracks of `movie`, which end at position `from` since all behind has moved, go on with
/// what `rebuilt`, made of the same clip by what `movie` teaches, has found from there on. Says
/// whether it does; then the pictures ahead were found again as well. What `rebuilt` has behind
/// `mediaEnd` is no part of the clip.
bool goOnWithMoved(Movie& movie, std::uint64_t from, const Movie& rebuilt, std::uint64_t mediaEnd);

}  // namespace tallowmark::VideoRepair
