// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/RebuiltTelemetry.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::VideoRepair {

namespace {

/// When each picture starts, in ticks of another track.
class Clock {
 public:
  Clock(const SampleList& pictures, std::uint32_t from, std::uint32_t to) : from_(from), to_(to) {
    starts_.reserve(static_cast<std::size_t>(pictures.size()) + 1);
    std::uint64_t time = 0;
    for (const Sample& picture : pictures) {
      starts_.push_back(time);
      time += picture.duration;
    }
    starts_.push_back(time);
  }
  std::int64_t startOf(std::uint64_t picture) const {
    const std::uint64_t time = starts_[std::min<std::uint64_t>(picture, starts_.size() - 1)];
    // Far beyond any recording, and far from where sums overflow.
    constexpr std::uint64_t latest = std::uint64_t{1} << 56U;
    return static_cast<std::int64_t>(std::min(rescale(time, to_, from_), latest));
  }
  std::int64_t end() const { return startOf(starts_.size() - 1); }

 private:
  std::uint32_t from_;
  std::uint32_t to_;
  std::vector<std::uint64_t> starts_;
};

/// Gives samples the times at which they start.
class Timing {
 public:
  Timing(const Clock& clock, const std::vector<std::uint64_t>& losses, std::int64_t lag,
         std::int64_t step, std::int64_t longestStep)
      : clock_(clock), losses_(losses), lag_(lag), step_(step), longestStep_(longestStep) {}

  std::vector<std::int64_t> of(std::span<const StoredTelemetry> samples) const {
    std::vector<std::int64_t> starts;
    std::int64_t due = 0;
    for (std::size_t from = 0; from < samples.size();) {
      std::size_t to = from + 1;
      while (to < samples.size() && !isLossBetween(samples[to - 1].frame, samples[to].frame)) {
        ++to;
      }
      const bool isWhole = from == 0 && !isLossBefore(samples[0].frame);
      due += isWhole ? 0 : shift(samples.subspan(from, to - from), due);
      for (; from < to; ++from, due += step_) {
        starts.push_back(due);
      }
    }
    return starts;
  }

 private:
  bool isLossBefore(std::uint64_t frame) const {
    return (!losses_.empty() && losses_.front() <= frame) ||
           clock_.startOf(frame) > longestStep_ + step_ / 2;
  }
  bool isLossBetween(std::uint64_t from, std::uint64_t to) const {
    const auto loss = std::upper_bound(losses_.begin(), losses_.end(), from);
    // A sample can be broken where all around it is whole.
    return (loss != losses_.end() && *loss <= to) ||
           clock_.startOf(to) - clock_.startOf(from) > longestStep_ + step_ / 2;
  }

  // By how much samples between two losses start later than the first one is due, by the pictures
  // that most of them are stored with: whole samples where only such are lost.
  std::int64_t shift(std::span<const StoredTelemetry> samples, std::int64_t due) const {
    std::vector<std::int64_t> late;
    for (const StoredTelemetry& sample : samples) {
      late.push_back(clock_.startOf(sample.frame) - lag_ - due);
      due += step_;
    }
    const auto middle = late.begin() + static_cast<std::ptrdiff_t>(late.size() / 2);
    std::nth_element(late.begin(), middle, late.end());
    const std::int64_t whole = (*middle + (*middle < 0 ? -step_ : step_) / 2) / step_ * step_;
    const bool isWhole = std::abs(*middle - whole) <= step_ / 8;
    // The sample before keeps some time.
    return std::max(isWhole ? whole : *middle, -step_ / 2);
  }

  const Clock& clock_;
  const std::vector<std::uint64_t>& losses_;
  std::int64_t lag_;
  std::int64_t step_;
  std::int64_t longestStep_;
};

std::uint32_t asDuration(std::int64_t ticks) {
  return static_cast<std::uint32_t>(
      std::clamp<std::int64_t>(ticks, 1, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

Track rebuildTelemetry(const SideFindings& found, const Movie& reference,
                       const TelemetryHabits& habits, const PictureTimes& times) {
  Track track = reference.tracks[habits.track];
  const std::uint32_t videoTimescale = reference.videoTrack()->timescale;
  const std::int64_t step = std::max<std::int64_t>(track.typicalDuration(), 1);
  track.samples.clear();
  track.mediaStart = 0;
  const Clock clock(times.pictures, videoTimescale, track.timescale);
  const auto inTicks = [&](double seconds) {
    constexpr double hour = 3600;
    return static_cast<std::int64_t>(std::min(seconds, hour) * track.timescale);
  };
  const auto starts = Timing(clock, times.losses, inTicks(habits.lag), step,
                             std::max(step, inTicks(habits.longestStep)))
                          .of(found.telemetry);
  const std::int64_t shownFrom = clock.startOf(times.cut);
  track.startDelay = 0;
  for (std::size_t i = 0; i < starts.size(); ++i) {
    const bool isLast = i + 1 == starts.size();
    const std::int64_t left = clock.end() - starts[i];
    const std::int64_t ending =
        starts[i] + (habits.endsWithPictures && left > 0 ? std::min(step, left) : step);
    const std::int64_t end = isLast ? ending : starts[i + 1];
    if (end <= shownFrom) {
      continue;
    }
    const std::int64_t start = std::max(starts[i], shownFrom);
    if (track.samples.empty() && start > shownFrom) {
      track.startDelay = rescale(static_cast<std::uint64_t>(start - shownFrom), reference.timescale,
                                 track.timescale);
    }
    const ByteRange& range = found.telemetry[i].range;
    track.samples.append({.offset = range.lower,
                          .size = static_cast<std::uint32_t>(range.length()),
                          .duration = asDuration(end - start),
                          .isSync = true});
  }
  return track;
}

Track rebuildTimecode(std::uint64_t position, const Movie& reference, const TimecodePlace& place,
                      const Track& video) {
  Track track = reference.tracks[place.track];
  const std::uint64_t length = rescale(video.duration(), track.timescale, video.timescale);
  track.samples = {{.offset = position,
                    .size = static_cast<std::uint32_t>(TimecodePlace::valueSize),
                    .duration = static_cast<std::uint32_t>(
                        std::min<std::uint64_t>(length, std::numeric_limits<std::uint32_t>::max())),
                    .isSync = true}};
  track.mediaStart = 0;
  track.startDelay = 0;
  return track;
}

namespace {

// The boxes by which a track of the reference refers to the timecode (tref), and to nothing else.
std::vector<std::vector<std::uint8_t>> timecodeReferences(const Track& track,
                                                          std::uint32_t timecodeID) {
  // A tref of one reference: two box headers and a track number (ISO/IEC 14496-12 §8.3.3).
  constexpr std::size_t size = 20;
  std::vector<std::vector<std::uint8_t>> found;
  for (const auto& box : track.extraBoxes) {
    if (box.size() == size && FourCC(bigEndian<std::uint32_t>(box, 4)) == "tref" &&
        FourCC(bigEndian<std::uint32_t>(box, 12)) == "tmcd" &&
        bigEndian<std::uint32_t>(box, 16) == timecodeID) {
      found.push_back(box);
    }
  }
  return found;
}

}  // namespace

void referToTimecode(Movie& movie, const Movie& reference, std::uint32_t timecodeID) {
  for (Track& track : movie.tracks) {
    for (const Track& taught : reference.tracks) {
      if (taught.trackID == track.trackID) {
        const auto boxes = timecodeReferences(taught, timecodeID);
        track.extraBoxes.insert(track.extraBoxes.begin(), boxes.begin(), boxes.end());
      }
    }
  }
}

}  // namespace tallowmark::VideoRepair
