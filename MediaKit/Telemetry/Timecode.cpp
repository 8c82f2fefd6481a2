// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Telemetry/Timecode.h"

#include <algorithm>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MovieParser.h"

namespace tallowmark {

namespace {

// Sample description: size, type, six reserved bytes, reference, reserved, flags, timescale,
// duration of a frame, frames a second.
std::uint64_t framesPerDayOf(const Track& timecode) {
  constexpr std::size_t framesPerSecondAt = 32;
  constexpr std::uint64_t secondsPerDay = 86400;
  const auto& entry = timecode.sampleEntry;
  return entry.size() > framesPerSecondAt ? entry[framesPerSecondAt] * secondsPerDay : 0;
}

/// Picture and sound around a position.
struct Neighbours {
  std::uint64_t pictures = 0;
  std::uint64_t endBefore = 0;
  std::optional<std::uint64_t> startBehind;
};

Neighbours neighboursOf(std::uint64_t at, const Movie& movie, std::uint64_t mediaStart) {
  Neighbours around{0, mediaStart, std::nullopt};
  const Track* video = movie.videoTrack();
  for (const Track& track : movie.tracks) {
    if (&track != video && track.kind != Track::Kind::audio) {
      continue;
    }
    for (const SampleRun& run : track.samples.runs()) {
      if (run.end() <= at) {
        around.endBefore = std::max(around.endBefore, run.end());
        around.pictures += &track == video ? run.count : 0;
      } else if (run.first.offset > at) {
        around.startBehind =
            std::min(around.startBehind.value_or(run.first.offset), run.first.offset);
      }
    }
  }
  return around;
}

}  // namespace

std::optional<TimecodePlace> TimecodePlace::learn(const Movie& reference,
                                                  const ByteSource& source) {
  const auto timecode =
      std::find_if(reference.tracks.begin(), reference.tracks.end(), [](const Track& candidate) {
        return candidate.codec == "tmcd" && candidate.samples.size() == 1 &&
               candidate.samples.front().size == valueSize;
      });
  const auto mdats = MovieParser::layout(BoxReader(source)).mdats;
  if (timecode == reference.tracks.end() || mdats.empty()) {
    return std::nullopt;
  }
  const std::uint64_t at = timecode->samples.front().offset;
  const Neighbours around = neighboursOf(at, reference, mdats.front().payloadOffset());
  if (at < around.endBefore || !around.startBehind) {
    return std::nullopt;
  }
  TimecodePlace place;
  place.track = static_cast<std::size_t>(timecode - reference.tracks.begin());
  place.pictures = around.pictures;
  place.distanceBehind = at - around.endBefore;
  place.distanceAhead = *around.startBehind - (at + valueSize);
  place.framesPerDay = framesPerDayOf(*timecode);
  place.aheadSize = std::min<std::size_t>(place.ahead.size(), place.distanceBehind);
  const auto bytes = source.read(at - place.aheadSize, place.aheadSize);
  std::copy(bytes.begin(), bytes.end(), place.ahead.begin());
  return place;
}

// A number of the day, behind bytes that are for the most part the reference's.
bool TimecodePlace::holdsAt(const ByteSource& source, std::uint64_t at) const {
  const auto bytes = source.read(at - aheadSize, aheadSize + valueSize);
  if (bytes.size() < aheadSize + valueSize) {
    return false;
  }
  std::size_t alike = 0;
  for (std::size_t i = 0; i < aheadSize; ++i) {
    alike += bytes[i] == ahead.at(i) ? 1U : 0U;
  }
  const auto value = bigEndian<std::uint32_t>(bytes, aheadSize);
  return alike * 4 >= aheadSize * 3 && (framesPerDay == 0 || value < framesPerDay);
}

std::optional<std::uint64_t> TimecodePlace::find(const ByteSource& source, const ByteRange& gap,
                                                 std::span<const ByteRange> known,
                                                 std::uint64_t picturesBefore) const {
  if (picturesBefore != pictures) {
    return std::nullopt;
  }
  std::uint64_t from = gap.lower;
  for (std::size_t i = 0; i <= known.size(); ++i) {
    const std::uint64_t to = i < known.size() ? known[i].lower : gap.upper;
    if (to - from == distanceBehind + valueSize + distanceAhead &&
        holdsAt(source, from + distanceBehind)) {
      return from + distanceBehind;
    }
    from = i < known.size() ? known[i].upper : from;
  }
  return std::nullopt;
}

}  // namespace tallowmark
