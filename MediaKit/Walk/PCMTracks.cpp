// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/PCMTracks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::VideoRepair {

namespace {

std::uint64_t storedBytes(const SampleList& samples) {
  std::uint64_t bytes = 0;
  for (const SampleRun& run : samples.runs()) {
    bytes += run.count * run.first.size;
  }
  return bytes;
}

// The samples that are there, and the ticks of those that are not ahead of the first of them.
std::uint64_t holdOverLosses(const SampleList& found, SampleList& held) {
  constexpr std::uint64_t longest = std::numeric_limits<std::int32_t>::max();
  std::uint64_t ahead = 0;
  for (const SampleRun& run : found.runs()) {
    if (run.first.size > 0) {
      held.append(found.slice(run.start, run.start + run.count));
    } else if (held.empty()) {
      ahead += run.duration();
    } else {
      Sample last = held.back();
      last.duration = static_cast<std::uint32_t>(std::min(longest, last.duration + run.duration()));
      held.removeLast();
      held.append(last);
    }
  }
  return ahead;
}

}  // namespace

std::uint64_t bytesOfPCM(const EvidencedFindings& found) {
  std::uint64_t bytes = storedBytes(found.audio);
  for (const FoundPCM& other : found.otherAudio) {
    bytes += storedBytes(other.samples);
  }
  return bytes;
}

void giveUpPCM(EvidencedFindings& found) {
  found.audio.clear();
  found.otherAudio.clear();
  found.doubtful.clear();
}

std::vector<Track> rebuildPCM(const EvidencedFindings& found, const Movie& reference, Track first) {
  const Track* taught = reference.audioTrack();
  const std::uint64_t delay = taught == nullptr ? 0 : taught->startDelay;
  const std::uint64_t later = first.startDelay - std::min(first.startDelay, delay);
  first.samples = found.audio;
  std::vector<Track> tracks{std::move(first)};
  for (Track track : reference.tracks) {
    const auto other = std::find_if(found.otherAudio.begin(), found.otherAudio.end(),
                                    [&](const auto& pcm) { return pcm.trackID == track.trackID; });
    if (other == found.otherAudio.end() || track.timescale == 0) {
      continue;
    }
    track.samples.clear();
    const auto ahead = static_cast<double>(holdOverLosses(other->samples, track.samples));
    const double lost = ahead / track.timescale * reference.timescale;
    track.startDelay = saturatingAdd(saturatingAdd(track.startDelay, later),
                                     static_cast<std::uint64_t>(std::llround(lost)));
    if (!track.samples.empty()) tracks.push_back(std::move(track));
  }
  return tracks;
}

}  // namespace tallowmark::VideoRepair
