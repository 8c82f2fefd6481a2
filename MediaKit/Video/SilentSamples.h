// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "MediaKit/Container/Movie.h"

namespace tallowmark::VideoRepair {

/// Players take every PCM sample for as long as any other: those that are held in a movie's PCM
/// tracks become of usual length, with silent ones behind them. Returns the bytes of silence, which
/// belong right behind the last byte of any sample; none where nothing is held.
std::vector<std::uint8_t> fillHolds(Movie& movie);

}  // namespace tallowmark::VideoRepair
