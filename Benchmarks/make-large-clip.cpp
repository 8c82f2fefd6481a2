// SPDX-License-Identifier: GPL-3.0-or-later
// Makes a clip of any length without encoding it: the media of a short one, again and again.
//   make-large-clip SHORT LARGE BYTES [index-first]
//   make-large-clip SHORT LARGE BYTES index-only   (an hour-long index over a sparse file)
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/MovieWriter.h"

namespace {

using namespace tallowmark;

ByteRange mediaOf(const Movie& movie) {
  ByteRange range{movie.tracks.front().samples.front().offset, 0};
  for (const Track& track : movie.tracks) {
    for (const SampleRun& run : track.samples.runs()) {
      range.lower = std::min(range.lower, run.first.offset);
      range.upper = std::max(range.upper, run.end());
    }
  }
  return range;
}

// The movie's samples `times` over, offsets counted from the start of the repeated media.
Movie repeated(const Movie& movie, const ByteRange& media, std::uint64_t times) {
  Movie longer = movie;
  for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
    longer.tracks[i].samples.clear();
    for (std::uint64_t k = 0; k < times; ++k) {
      longer.tracks[i].samples.append(
          movie.tracks[i].samples.movedBy(k * media.length() - media.lower));
    }
  }
  return longer;
}

// The index ahead of the media, as cameras that preallocate it write.
void writeIndexFirst(Movie movie, const std::vector<Segment>& segments, std::uint64_t total,
                     FileSink& sink) {
  const std::uint64_t start = movie.fileType.size() + MovieWriter::moov(movie).size() + 16;
  for (Track& track : movie.tracks) {
    track.samples = track.samples.movedBy(start);
  }
  sink.append(movie.fileType);
  sink.append(MovieWriter::moov(movie));
  std::vector<std::uint8_t> header{0, 0, 0, 1, 'm', 'd', 'a', 't'};
  for (int shift = 56; shift >= 0; shift -= 8) {
    header.push_back(static_cast<std::uint8_t>((total + 16) >> static_cast<unsigned>(shift)));
  }
  sink.append(header);
  for (const Segment& segment : segments) {
    sink.copy(*segment.source, segment.range.lower, segment.range.length(), {}, {});
  }
}

void make(const std::string& from, const std::string& to, std::uint64_t bytes,
          const std::string& layout) {
  const FileSource source(from);
  const Movie movie = MovieParser::parse(BoxReader(source));
  const ByteRange media = mediaOf(movie);
  const std::uint64_t times = (bytes + media.length() - 1) / media.length();
  const Movie longer = repeated(movie, media, times);
  FileSink sink(to);
  if (layout == "index-only") {
    // The media stays a hole: the index alone is what is measured.
    Movie moved = longer;
    for (Track& track : moved.tracks) {
      track.samples = track.samples.movedBy(1U << 30U);
    }
    sink.append(movie.fileType);
    sink.append(MovieWriter::moov(moved));
    if (::truncate(to.c_str(), static_cast<off_t>((1U << 30U) + times * media.length())) != 0) {
      throw std::runtime_error("could not lengthen the file");
    }
    return;
  }
  const std::vector<Segment> segments(static_cast<std::size_t>(times), Segment{&source, media});
  if (layout == "index-first") {
    writeIndexFirst(longer, segments, times * media.length(), sink);
  } else {
    MovieWriter::write(longer, segments, sink);
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 4) {
    std::cerr << "usage: make-large-clip SHORT LARGE BYTES [index-first | index-only]\n";
    return 2;
  }
  try {
    make(arguments[1], arguments[2], std::strtoull(arguments[3], nullptr, 10),
         count > 4 ? arguments[4] : "");
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
