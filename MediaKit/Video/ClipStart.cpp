// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/ClipStart.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark::VideoRepair {

namespace {

// Fifteen seconds of the fattest intra-only formats of today's cameras take two thirds of it.
constexpr std::uint64_t mostMedia = std::uint64_t{1} << 30U;

// Ranges that lie closer than this are copied with what lies between: telemetry, padding.
constexpr std::uint64_t smallestGap = std::uint64_t{64} << 10U;

std::uint64_t ticksIn(double seconds, const Track& track) {
  constexpr double most = 4503599627370496.0;  // 2^52
  const double ticks = std::ceil(seconds * track.timescale);
  const auto whole =
      std::isfinite(ticks) ? static_cast<std::uint64_t>(std::clamp(ticks, 0.0, most)) : 0;
  return saturatingAdd(whole,
                       static_cast<std::uint64_t>(std::max<std::int64_t>(track.mediaStart, 0)));
}

// The samples that start before `end`, in the track's ticks, as long as they stay within reason.
SampleList startingBefore(std::uint64_t end, const SampleList& samples) {
  SampleList start;
  std::uint64_t ticks = 0;
  std::uint64_t room = mostMedia;
  for (const SampleRun& run : samples.runs()) {
    if (ticks >= end) {
      break;
    }
    const std::uint64_t each = run.first.duration;
    std::uint64_t count = each == 0 ? run.count : std::min(run.count, (end - ticks - 1) / each + 1);
    if (run.first.size != 0) {
      count = std::min(count, room / run.first.size);
    }
    start.append(run.first, count);
    if (count < run.count) {
      break;
    }
    ticks = saturatingAdd(ticks, run.duration());
    room -= count * run.first.size;
  }
  return start;
}

std::vector<ByteRange> rangesOf(const Movie& movie) {
  std::vector<ByteRange> all;
  for (const Track& track : movie.tracks) {
    for (const SampleRun& run : track.samples.runs()) all.push_back({run.first.offset, run.end()});
  }
  std::sort(all.begin(), all.end(),
            [](const ByteRange& a, const ByteRange& b) { return a.lower < b.lower; });
  std::vector<ByteRange> merged;
  for (const ByteRange& range : all) {
    if (!merged.empty() && range.lower <= saturatingAdd(merged.back().upper, smallestGap)) {
      merged.back().upper = std::max(merged.back().upper, range.upper);
    } else {
      merged.push_back(range);
    }
  }
  return merged;
}

// Where the bytes of the ranges stand when these follow one another.
class Moved {
 public:
  explicit Moved(const std::vector<ByteRange>& ranges) : ranges_(ranges) {
    std::uint64_t ahead = 0;
    for (const ByteRange& range : ranges) {
      ahead_.push_back(ahead);
      ahead += range.length();
    }
  }

  std::uint64_t placeOf(std::uint64_t offset) const {
    const auto behind = std::upper_bound(
        ranges_.begin(), ranges_.end(), offset,
        [](std::uint64_t place, const ByteRange& range) { return place < range.lower; });
    const auto index = static_cast<std::size_t>(std::distance(ranges_.begin(), behind)) - 1;
    return ahead_[index] + (offset - ranges_[index].lower);
  }

 private:
  const std::vector<ByteRange>& ranges_;
  std::vector<std::uint64_t> ahead_;
};

}  // namespace

ClipStart clipStart(const Movie& movie, double seconds) {
  ClipStart start{movie, {}};
  for (Track& track : start.movie.tracks) {
    track.samples = startingBefore(ticksIn(seconds, track), track.samples);
  }
  std::erase_if(start.movie.tracks, [](const Track& track) { return track.samples.empty(); });
  start.ranges = rangesOf(start.movie);
  const Moved moved(start.ranges);
  for (Track& track : start.movie.tracks) {
    SampleList samples;
    for (const SampleRun& run : track.samples.runs()) {
      Sample first = run.first;
      first.offset = moved.placeOf(first.offset);
      samples.append(first, run.count);
    }
    track.samples = std::move(samples);
  }
  return start;
}

void write(const ClipStart& start, const ByteSource& source, FileSink& destination,
           const StopToken& stop) {
  std::vector<Segment> segments;
  for (const ByteRange& range : start.ranges) segments.push_back({&source, range});
  MovieWriter::write(start.movie, segments, destination, {}, stop);
}

}  // namespace tallowmark::VideoRepair
