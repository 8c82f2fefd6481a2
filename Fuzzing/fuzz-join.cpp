// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <cstdlib>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Join/ClipJoin.h"
#include "MediaKit/Join/Compatibility.h"
#include "MediaKit/Join/EssentialConfig.h"
#include "MediaKit/Join/JoinPlan.h"

// Two strangers' clips, the first as long as the first two bytes say: what decides whether and how
// they are joined must stand every index, and lose no sample of a track that it carries.
namespace {

using namespace tallowmark;

ClipJoin::Part partFrom(std::span<const std::uint8_t> bytes) {
  ClipJoin::Part part;
  part.url = "part.mp4";
  const MemorySource source({bytes.begin(), bytes.end()});
  try {
    part.movie = MovieParser::parse(BoxReader(source));
  } catch (const MediaError&) {
    part.movie = Movie();
  }
  return part;
}

void requireEverySample(const ClipJoin::Plan& joined, std::span<const ClipJoin::Part> parts) {
  for (const Track& track : joined.movie.tracks) {
    if (track.kind == Track::Kind::other) {
      continue;
    }
    std::uint64_t samples = 0;
    for (const ClipJoin::Part& part : parts) {
      const auto piece =
          std::find_if(part.movie.tracks.begin(), part.movie.tracks.end(),
                       [&](const Track& candidate) { return candidate.kind == track.kind; });
      samples += piece->samples.size();
    }
    if (samples != track.samples.size()) std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const std::span<const std::uint8_t> bytes(data + 2, size - 2);
  const std::size_t firstSize = std::min(bytes.size(), std::size_t{data[0]} * 256 + data[1]);
  const std::vector<ClipJoin::Part> parts{partFrom(bytes.first(firstSize)),
                                          partFrom(bytes.subspan(firstSize))};
  const bool fits = !ClipJoin::incompatibility(parts);
  const ClipJoin::Plan joined = ClipJoin::plan(parts);
  if (fits) {
    requireEverySample(joined, parts);
  }
  (void)ClipJoin::summary(parts);
  for (const auto kind : {Track::Kind::video, Track::Kind::audio, Track::Kind::other}) {
    (void)ClipJoin::essentialConfig(bytes, kind);
  }
  return 0;
}
