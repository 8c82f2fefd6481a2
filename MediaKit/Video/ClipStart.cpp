// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/ClipStart.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "MediaKit/Container/SaturatingMath.h"
#include "MediaKit/Video/LengthenedSource.h"

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

// The movie with its samples' offsets counted in the ranges that hold them.
ClipStart gather(Movie movie) {
  std::erase_if(movie.tracks, [](const Track& track) { return track.samples.empty(); });
  std::vector<ByteRange> ranges = rangesOf(movie);
  const Moved moved(ranges);
  for (Track& track : movie.tracks) {
    SampleList samples;
    for (const SampleRun& run : track.samples.runs()) {
      Sample first = run.first;
      first.offset = moved.placeOf(first.offset);
      samples.append(first, run.count);
    }
    track.samples = std::move(samples);
  }
  return {std::move(movie), std::move(ranges)};
}

}  // namespace

ClipStart clipStart(const Movie& movie, double seconds) {
  Movie start = movie;
  for (Track& track : start.tracks) {
    track.samples = startingBefore(ticksIn(seconds, track), track.samples);
  }
  return gather(std::move(start));
}

std::vector<std::uint64_t> keyPictures(const Movie& movie, std::size_t most) {
  std::vector<std::uint64_t> keys;
  if (movie.videoTrack() != nullptr) {
    for (const SampleRun& run : movie.videoTrack()->samples.runs()) {
      if (run.first.isSync) keys.push_back(run.start);
    }
  }
  std::vector<std::uint64_t> spread;
  const std::size_t count = std::min(most, keys.size());
  for (std::size_t i = 0; i < count; ++i) spread.push_back(keys[i * keys.size() / count]);
  return spread;
}

void write(const ClipStart& start, const ByteSource& source, FileSink& destination,
           const StopToken& stop, const AddedBytes& added) {
  const LengthenedSource lengthened(source, added.at, added.bytes);
  const ByteSource& from = added.bytes.empty() ? source : lengthened;
  std::vector<Segment> segments;
  for (const ByteRange& range : start.ranges) segments.push_back({&from, range});
  MovieWriter::write(start.movie, segments, destination, {}, stop);
}

}  // namespace tallowmark::VideoRepair
