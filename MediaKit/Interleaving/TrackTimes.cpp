// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/TrackTimes.h"

#include <algorithm>

namespace tallowmark {

namespace {

// Time stamps are rounded, and a camera's clocks for sound and picture run apart.
constexpr double slack = 0.02;
constexpr double driftPerPicture = 2e-4;
// Tracks that are nearly as far apart one way round as the other are told by no such trifle.
constexpr double vague = 0.1;

}  // namespace

TrackTimes::TrackTimes(double picture, std::span<const std::uint16_t> ahead) : picture_(picture) {
  for (const std::uint16_t blocks : ahead) tracks_.push_back({{}, blocks});
}

void TrackTimes::add(std::span<const std::uint8_t> tracks, std::uint64_t frame) {
  const double drift =
      gaps_ == 0 ? 0 : driftPerPicture * static_cast<double>(frame - std::min(frame, frame_));
  for (Clock& clock : tracks_) {
    clock.start.earliest -= drift;
    clock.start.latest += drift;
  }
  // Ahead of the first picture stands what was recorded before it.
  constexpr double longBefore = 1e6;
  const double latest = static_cast<double>(frame) * picture_ + slack;
  const double earliest = frame == 0 ? -longBefore : latest - picture_ - 2 * slack;
  for (const std::uint8_t track : tracks) {
    Clock& clock = tracks_[track];
    const auto before = static_cast<double>(clock.blocks++);
    Bounds& start = clock.start;
    start.last = earliest - before;
    start.earliest = start.isBound ? std::max(start.earliest, start.last) : start.last;
    start.latest = start.isBound ? std::min(start.latest, latest - before) : latest - before;
    start.isBound = true;
  }
  frame_ = frame;
  ++gaps_;
}

void TrackTimes::widenTo(const TrackTimes& other) {
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    Bounds& start = tracks_[i].start;
    const Bounds& more = other.tracks_[i].start;
    start = {std::min(start.earliest, more.earliest), std::max(start.latest, more.latest),
             start.isBound && more.isBound, std::min(start.last, more.last)};
  }
}

bool TrackTimes::areImpossible() const {
  return std::any_of(tracks_.begin(), tracks_.end(), [](const Clock& clock) {
    return clock.start.isBound && clock.start.earliest > clock.start.latest;
  });
}

double TrackTimes::lag() const {
  double most = 0;
  for (const Clock& clock : tracks_) {
    most = std::max(most, clock.start.isBound ? clock.start.last - clock.start.latest : 0);
  }
  return most;
}

bool TrackTimes::areAsFarApartAs(const TrackTimes& other) const {
  for (std::size_t i = 1; i < tracks_.size(); ++i) {
    const Bounds& first = tracks_[0].start;
    const Bounds& start = tracks_[i].start;
    const Bounds& otherFirst = other.tracks_[0].start;
    const Bounds& otherStart = other.tracks_[i].start;
    const bool areBound =
        first.isBound && start.isBound && otherFirst.isBound && otherStart.isBound;
    if (areBound &&
        (start.earliest - first.latest > otherStart.latest - otherFirst.earliest + vague ||
         start.latest - first.earliest + vague < otherStart.earliest - otherFirst.latest)) {
      return false;
    }
  }
  return true;
}

}  // namespace tallowmark
