// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// Takes out of a movie's index what belongs to the one recording it came from, its date, place and
/// marks, so that the rest (camera, rotation, colour) can describe another clip of the same camera.
void forgetTheRecording(Movie& movie);

}  // namespace tallowmark
