// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/DisplayTimes.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace tallowmark::VideoRepair {

DisplayTimes DisplayTimes::of(const SampleList& pictures) {
  constexpr std::uint64_t enough = 1000;
  DisplayTimes times;
  std::int64_t time = 0;
  for (const Sample picture : pictures.slice(0, std::min(pictures.size(), enough))) {
    times.add(time, picture.compositionOffset);
    time += picture.duration;
  }
  return times;
}

std::int64_t DisplayTimes::first() const {
  const auto least = std::min_element(shown.begin(), shown.end());
  return least == shown.end() ? 0 : *least;
}

// Where pictures are missing among them few of the others differ.
std::int64_t DisplayTimes::delay() const {
  std::vector<std::int64_t> delays = shown;
  std::sort(delays.begin(), delays.end());
  for (std::size_t i = 0; i < delays.size(); ++i) delays[i] -= decoded[i];
  const auto middle = delays.begin() + static_cast<std::ptrdiff_t>(delays.size() / 2);
  std::nth_element(delays.begin(), middle, delays.end());
  return delays.empty() ? 0 : *middle;
}

SampleList DisplayTimes::inOrder(const SampleList& pictures, std::int64_t delay) const {
  std::vector<std::size_t> order(shown.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return shown[a] < shown[b]; });
  std::vector<std::int64_t> starts;
  starts.reserve(shown.size());
  std::int64_t time = 0;
  for (const Sample picture : pictures) {
    starts.push_back(time);
    time += picture.duration;
  }
  std::vector<std::int64_t> times(shown.size());
  for (std::size_t i = 0; i < order.size(); ++i) times[order[i]] = starts[i] + delay;
  SampleList ordered;
  std::size_t number = 0;
  for (Sample picture : pictures) {
    picture.compositionOffset = static_cast<std::int32_t>(times[number] - starts[number]);
    ordered.append(picture);
    ++number;
  }
  return ordered;
}

SampleList shownLater(const SampleList& pictures, std::int64_t ticks) {
  SampleList later;
  for (Sample picture : pictures) {
    picture.compositionOffset = static_cast<std::int32_t>(picture.compositionOffset + ticks);
    later.append(picture);
  }
  return later;
}

}  // namespace tallowmark::VideoRepair
