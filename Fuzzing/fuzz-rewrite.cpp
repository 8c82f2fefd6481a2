// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes trimmed into a new movie, which must then be healthy and hold what was reported.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"

namespace {

using namespace tallowmark;

void require(bool holds) {
  if (!holds) std::abort();
}

std::vector<std::uint8_t> contentsOf(int descriptor, std::uint64_t size) {
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
  require(::pread(descriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const MemorySource source({data, data + size});
  const int file = ::memfd_create("copy", MFD_CLOEXEC);
  try {
    FileSink sink(::dup(file), "copy");
    const VideoRepair::Result result = VideoRepair::trim(source, sink);
    const MemorySource copy(contentsOf(file, sink.size()));
    require(std::holds_alternative<VideoRepair::Healthy>(VideoRepair::diagnose(copy)));
    const Movie movie = MovieParser::parse(BoxReader(copy));
    require(movie.videoTrack()->samples.size() == result.videoFrames);
    require(movie.seconds() == result.seconds);
  } catch (const MediaError&) {
  }
  ::close(file);
  return 0;
}
