// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes as the media of a good clip with side tracks and of a damaged one. Trees that are found
// are trees, in order and apart; what is told of a stretch is no more than the stretch.
#include <algorithm>
#include <cstdlib>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Telemetry/KeyLengthValue.h"
#include "MediaKit/Telemetry/SideTracks.h"
#include "MediaKit/Telemetry/TelemetryHabits.h"
#include "MediaKit/Telemetry/TelemetrySearch.h"
#include "MediaKit/Telemetry/Timecode.h"

namespace {

using namespace tallowmark;

void require(bool holds) {
  if (!holds) std::abort();
}

Track track(Track::Kind kind, const char* codec, std::uint64_t from, std::uint32_t size,
            std::uint64_t count) {
  Track made;
  made.kind = kind;
  made.codec = codec;
  made.timescale = 1000;
  made.samples.append({.offset = from, .size = size, .duration = 40}, count);
  return made;
}

void checkTrees(const ByteSource& source) {
  TelemetrySearch search(source);
  std::uint64_t at = 0;
  for (const ByteRange& tree : search.in({0, source.size()}, source.size())) {
    require(tree.lower >= at && tree.upper <= source.size());
    require(isTelemetryTree(source.read(tree.lower, tree.length())));
    at = tree.upper;
  }
}

}  // namespace

// The input: two bytes that place and size the samples of the side tracks, then the media.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const MemorySource source({data + 2, data + size});
  checkTrees(source);
  const std::uint32_t length = data[1];
  const std::uint64_t behind = std::uint64_t{data[0]} + length * std::uint64_t{4};
  Movie movie;
  movie.tracks = {track(Track::Kind::video, "avc1", 0, data[0], 1),
                  track(Track::Kind::other, "mebx", data[0], length, 4),
                  track(Track::Kind::other, "gpmd", data[0], length, 1),
                  track(Track::Kind::other, "tmcd", behind, 4, 1),
                  track(Track::Kind::audio, "mp4a", behind + 8, 1, 1)};
  const auto telemetry = TelemetryHabits::learn(movie, source);
  require(!telemetry || telemetry->treesPerSample > 0);
  const auto habits = SideTrackHabit::learn(movie, source);
  const ByteRange gap{std::min<std::uint64_t>(data[0], source.size()), source.size()};
  MediaWindow window(source, source.size(), {64, 4096});
  BytesByTrack byTrack;
  const std::uint64_t told = addSideTracksIn(gap, window, habits, byTrack);
  require(told <= gap.length());
  std::uint64_t sum = 0;
  for (const auto& [name, bytes] : byTrack) sum += bytes;
  require(sum == told);
  try {
    if (const auto place = TimecodePlace::learn(movie, source)) {
      const auto found = place->find(source, gap, {}, 1);
      require(!found || (*found >= gap.lower && *found + 4 <= gap.upper));
    }
  } catch (const MediaError&) {
    // The media is no movie.
  }
  return 0;
}
