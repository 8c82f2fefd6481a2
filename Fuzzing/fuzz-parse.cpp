// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes through the layout scan, the parser and the clip's facts.
#include <cstdlib>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/ClipInfo.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"

namespace {

using namespace tallowmark;

void require(bool holds) {
  if (!holds) std::abort();
}

void checkSamples(const SampleList& samples) {
  std::uint64_t counted = 0;
  for (const SampleRun& run : samples.runs()) {
    require(run.count > 0 && run.start == counted);
    counted += run.count;
  }
  require(counted == samples.size());
  if (!samples.empty()) {
    require(samples[0] == samples.front() && samples[counted - 1] == samples.back());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemorySource source({data, data + size});
  const BoxReader reader(source);
  try {
    const FileLayout layout = MovieParser::layout(reader);
    for (const Box& box : layout.mdats) require(box.end() <= size);
    const Movie movie = MovieParser::parse(reader);
    for (const Track& track : movie.tracks) {
      checkSamples(track.samples);
      checkSamples(track.samples.endingBy(size));
      require(track.typicalDuration() > 0 || !track.samples.empty());
    }
    if (const auto info = ClipInfo::of(movie)) require(!info->summary().empty());
  } catch (const MediaError&) {
  }
  return 0;
}
