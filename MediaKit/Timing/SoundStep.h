// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "MediaKit/Timing/PicturePacing.h"

namespace tallowmark::VideoRepair {

/// Edit lists of cameras relate the first picture to the first sound: one of them starts late, or
/// has a beginning that is not shown. A rebuilt clip keeps that relation and shows every picture.

/// Seconds from a movie's start to its first picture; negative where pictures are hidden.
double pictureStart(const Movie& movie);

/// By how many seconds the pictures of a clip start later, against its sound, than the reference's
/// do, as far as the sound stored ahead of them tells: it is further ahead than in the reference by
/// as much from the first picture on. 0 when it tells nothing. `frame`: seconds of a picture;
/// `lossless`: of the pictures before this number, and of sound ahead of them, nothing is lost.
double lateStart(const SoundPace& pace, double frame, std::uint64_t lossless);

/// Lets the pictures of a movie, its first track, start at `seconds` instead of at zero, and all
/// that is not sound with them; where that is negative the sound starts later.
void startPicturesAt(Movie& movie, double seconds);

}  // namespace tallowmark::VideoRepair
