// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/RecordingFacts.h"

namespace tallowmark {

void forgetTheRecording(Movie& movie) {
  movie.creationTime = 0;
}

}  // namespace tallowmark
