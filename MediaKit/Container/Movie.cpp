// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/Movie.h"

#include <utility>

#include <algorithm>

namespace tallowmark {

const LostPiece::Resumption* LostPiece::resumptionOf(std::uint32_t trackID) const {
  const auto found = std::find_if(resumptions.begin(), resumptions.end(),
                                  [&](const auto& place) { return place.trackID == trackID; });
  return found == resumptions.end() ? nullptr : &*found;
}

LostPiece::Resumption* LostPiece::resumptionOf(std::uint32_t trackID) {
  const auto found = std::as_const(*this).resumptionOf(trackID);
  return found == nullptr ? nullptr
                          : &resumptions[static_cast<std::size_t>(found - resumptions.data())];
}

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
