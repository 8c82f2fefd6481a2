// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark::VideoRepair {

/// The beginning of a clip, cut out for a look at it.
struct ClipStart {
  /// Sample offsets count from the first byte of the concatenated ranges.
  Movie movie;
  /// Where its media lies in the clip, in file order, without overlaps.
  std::vector<ByteRange> ranges;
};

/// What plays in the first `seconds` of a movie whose sample offsets are positions in its file.
/// However its index lies about time and place, the media is a gigabyte a track at most.
ClipStart clipStart(const Movie& movie, double seconds);

/// Numbers of up to `most` key pictures of a movie's video, spread evenly over it.
std::vector<std::uint64_t> keyPictures(const Movie& movie, std::size_t most);

/// Writes a playable movie. `source` is the file that the movie was of, `added` what the plan for
/// it adds. Throws as MovieWriter.
void write(const ClipStart& start, const ByteSource& source, FileSink& destination,
           const StopToken& stop = {}, const AddedBytes& added = {});

}  // namespace tallowmark::VideoRepair
