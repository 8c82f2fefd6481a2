// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes trimmed into a new movie, which must then be healthy by its boxes, whatever their index
// claimed, and hold what was reported.
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "WrittenCopy.h"

using namespace tallowmark;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemorySource source({data, data + size});
  try {
    WrittenCopy written;
    const VideoRepair::Result result = VideoRepair::trim(source, written.sink());
    const MemorySource copy(written.contents());
    require(std::holds_alternative<VideoRepair::Healthy>(
        VideoRepair::diagnose(copy, VideoRepair::Depth::basic)));
    const Movie movie = MovieParser::parse(BoxReader(copy));
    require(movie.videoTrack()->samples.size() == result.videoFrames);
    require(movie.seconds() == result.seconds);
  } catch (const MediaError&) {
  }
  return 0;
}
