// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/Interleaving.h"

#include <algorithm>

namespace tallowmark {

namespace {

void addExtents(const Track& track, std::vector<Extent>& extents) {
  const double ticks = std::max(1U, track.timescale);
  double time = 0;
  for (const SampleRun& run : track.samples.runs()) {
    const double length = static_cast<double>(run.duration()) / ticks;
    if (!extents.empty() && extents.back().to == run.first.offset &&
        extents.back().track == &track) {
      extents.back().to = run.end();
      extents.back().samples += run.count;
      extents.back().length += length;
    } else {
      extents.push_back({run.first.offset, run.end(), &track, run.count, time, length});
    }
    time += length;
  }
}

}  // namespace

std::vector<Extent> extentsOf(const Movie& movie) {
  std::vector<Extent> extents;
  for (const Track& track : movie.tracks) {
    addExtents(track, extents);
  }
  std::sort(extents.begin(), extents.end(),
            [](const Extent& a, const Extent& b) { return a.from < b.from; });
  return extents;
}

SoundLead leadOf(const std::vector<Extent>& extents, const Track& video, const Track& audio) {
  double sound = 0;
  double sum = 0;
  std::vector<double> leads;
  for (const Extent& extent : extents) {
    if (extent.track == &audio) {
      sound += extent.length;
    } else if (extent.track == &video) {
      leads.push_back(sound - extent.startTime);
      sum += leads.back();
    }
  }
  if (leads.empty()) {
    return {};
  }
  return {leads.front(), sum / static_cast<double>(leads.size()),
          *std::min_element(leads.begin(), leads.end()),
          *std::max_element(leads.begin(), leads.end())};
}

}  // namespace tallowmark
