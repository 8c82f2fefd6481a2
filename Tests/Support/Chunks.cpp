// SPDX-License-Identifier: GPL-3.0-or-later
#include "Tests/Support/Chunks.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "DeviceKit/FileSink.h"
#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Container/MovieWriter.h"
#include "Tests/Support/Files.h"

namespace tallowmark::testing {

std::vector<Chunk> chunksOf(const Movie& movie, double seconds) {
  std::vector<Chunk> chunks;
  for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
    const Track& track = movie.tracks[i];
    double time = 0;
    std::uint64_t index = 0;
    for (const Sample& sample : track.samples) {
      const auto number = static_cast<std::uint64_t>(std::floor(time / seconds + 1e-9));
      if (chunks.empty() || chunks.back().track != i || chunks.back().number != number) {
        chunks.push_back({number, i, index, index});
      }
      chunks.back().to = ++index;
      time += static_cast<double>(sample.duration) / track.timescale;
    }
  }
  std::stable_sort(chunks.begin(), chunks.end(),
                   [](const Chunk& a, const Chunk& b) { return a.number < b.number; });
  return chunks;
}

Movie gatherChunks(Movie movie, const ByteSource& source, std::span<const Chunk> chunks,
                   std::vector<std::uint8_t>& media, const std::function<void()>& ahead) {
  std::vector<SampleList> lists(movie.tracks.size());
  for (const Chunk& chunk : chunks) {
    if (ahead) ahead();
    for (Sample sample : movie.tracks[chunk.track].samples.slice(chunk.from, chunk.to)) {
      const Bytes bytes = source.read(sample.offset, sample.size);
      sample.offset = media.size();
      lists[chunk.track].append(sample);
      media.insert(media.end(), bytes.begin(), bytes.end());
    }
  }
  for (std::size_t i = 0; i < lists.size(); ++i) movie.tracks[i].samples = lists[i];
  return movie;
}

void storeInChunks(const std::filesystem::path& clip, double seconds,
                   const std::filesystem::path& target, const std::vector<std::size_t>& order) {
  const FileSource source(clip.string());
  Movie movie = MovieParser::parse(BoxReader(source));
  Bytes media;
  const auto placeOf = [&](const Chunk& chunk) {
    return std::pair(chunk.number, std::find(order.begin(), order.end(), chunk.track));
  };
  std::vector<Chunk> chunks = chunksOf(movie, seconds);
  std::stable_sort(chunks.begin(), chunks.end(),
                   [&](const Chunk& a, const Chunk& b) { return placeOf(a) < placeOf(b); });
  movie = gatherChunks(std::move(movie), source, chunks, media);
  FileSink sink(target.string());
  MovieWriter::write(movie, MemorySource(media), {0, media.size()}, sink);
  sink.close();
}

}  // namespace tallowmark::testing
