// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/TrackEnd.h"

#include <algorithm>
#include <limits>

#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::MovieFragments {

double TrackEnd::seconds(std::uint64_t ticks) const {
  return static_cast<double>(ticks) / std::max<std::uint32_t>(track_->timescale, 1);
}

void TrackEnd::startAt(std::uint64_t time) {
  resume(time > time_ ? time - time_ : 0);
  if (count_ > 0 && time > time_) {
    if (--count_ > 0) track_->samples.append(held_, count_);
    held_.offset += count_ * held_.size;
    count_ = 1;
    const std::uint64_t longer = saturatingAdd(held_.duration, time - time_);
    held_.duration = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(longer, std::numeric_limits<std::uint32_t>::max()));
  }
  time_ = std::max(time, time_);
}

void TrackEnd::append(const Sample& first, std::uint64_t count) {
  if (count == 0) return;
  resume(std::nullopt);
  flush();
  held_ = first;
  count_ = count;
  time_ = saturatingAdd(time_, saturatingMultiply(first.duration, count));
}

void TrackEnd::flush() {
  if (count_ > 0) track_->samples.append(held_, count_);
  count_ = 0;
}

void TrackEnd::resume(std::optional<std::uint64_t> ticks) {
  if (lost_->size() == resumed_) return;
  resumed_ = lost_->size();
  // The index itself may hold the samples ahead.
  if (count_ == 0 && !track_->samples.empty()) {
    held_ = track_->samples.back();
    track_->samples.removeLast();
    count_ = 1;
  }
  lost_->back().resumptions.push_back({track_->trackID, track_->samples.size() + count_, ticks});
}

}  // namespace tallowmark::MovieFragments
