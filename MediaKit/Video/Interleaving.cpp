// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/Interleaving.h"

#include <algorithm>
#include <numeric>
#include <utility>

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
  std::vector<double> leads;
  for (const Extent& extent : extents) {
    if (extent.track == &audio) {
      sound += extent.length;
    } else if (extent.track == &video) {
      leads.push_back(sound - extent.startTime);
    }
  }
  return SoundLead::of(std::move(leads));
}

SoundLead SoundLead::of(std::vector<double> leads) {
  if (leads.empty()) {
    return {};
  }
  SoundLead lead;
  lead.first = leads.front();
  lead.usual = std::accumulate(leads.begin(), leads.end(), 0.0) / static_cast<double>(leads.size());
  std::sort(leads.begin(), leads.end());
  lead.least = leads.front();
  lead.most = leads.back();
  const std::size_t outliers = leads.size() / 12;
  lead.mostlyLeast = leads[outliers];
  lead.mostlyMost = leads[leads.size() - 1 - outliers];
  return lead;
}

}  // namespace tallowmark
