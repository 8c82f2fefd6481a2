// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/LearntClip.h"

namespace tallowmark {

std::size_t LearntClip::bytes() const {
  constexpr std::size_t bytesPerRun = 20;
  const Movie& movie = plan.movie;
  std::size_t total = movie.fileType.size() + (movie.userData ? movie.userData->size() : 0) +
                      (movie.metadata ? movie.metadata->size() : 0);
  for (const Track& track : movie.tracks) {
    total += track.samples.runs().size() * bytesPerRun + track.sampleEntry.size() +
             (track.mediaHeader ? track.mediaHeader->size() : 0);
    for (const auto& box : track.extraBoxes) total += box.size();
  }
  return total;
}

}  // namespace tallowmark
