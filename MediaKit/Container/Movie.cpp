// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/Movie.h"

#include <algorithm>

namespace tallowmark {

double Movie::seconds() const {
  double longest = 0;
  for (const Track& track : tracks) {
    const double ticks = track.timescale == 0 ? 1 : track.timescale;
    longest = std::max(longest, static_cast<double>(track.duration()) / ticks);
  }
  return longest;
}

const Track* Movie::first(Track::Kind kind) const {
  const auto track =
      std::find_if(tracks.begin(), tracks.end(), [&](const Track& t) { return t.kind == kind; });
  return track == tracks.end() ? nullptr : &*track;
}

}  // namespace tallowmark
