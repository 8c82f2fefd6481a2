// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes as a clip without index, rebuilt by what any other bytes teach as the good clip.
#include <algorithm>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "WrittenCopy.h"

using namespace tallowmark;

// The input: two bytes that say how long the reference is, the reference, the damaged clip.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const std::size_t length = std::min<std::size_t>(data[0] * std::size_t{256} + data[1], size - 2);
  const MemorySource reference({data + 2, data + 2 + length});
  const MemorySource damaged({data + 2 + length, data + size});
  try {
    WrittenCopy written;
    const VideoRepair::Result result = VideoRepair::rebuild(damaged, reference, written.sink());
    const MemorySource copy(written.contents());
    require(std::holds_alternative<VideoRepair::Healthy>(
        VideoRepair::diagnose(copy, VideoRepair::Depth::basic)));
    const Movie movie = MovieParser::parse(BoxReader(copy));
    require(movie.videoTrack()->samples.size() == result.videoFrames);
    require(result.unusedBytes <= damaged.size());
  } catch (const MediaError&) {
  }
  return 0;
}
