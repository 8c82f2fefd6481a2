// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark::testing {

/// A track's samples [from, to), which are stored together.
struct Chunk {
  std::uint64_t number = 0;
  std::size_t track = 0;
  std::uint64_t from = 0;
  std::uint64_t to = 0;
};

/// Chunks of so many seconds of each track in turn, in the order of the tracks.
std::vector<Chunk> chunksOf(const Movie& movie, double seconds);

/// Appends the samples of those chunks to `media`, each behind what `ahead` appends; the movie with
/// its samples there. `source`: of `movie`.
Movie gatherChunks(Movie movie, const ByteSource& source, std::span<const Chunk> chunks,
                   std::vector<std::uint8_t>& media, const std::function<void()>& ahead = {});

/// Writes a clip anew in such chunks. `order`: numbers of the tracks, as their chunks follow one
/// another; empty for their own order.
void storeInChunks(const std::filesystem::path& clip, double seconds,
                   const std::filesystem::path& target, const std::vector<std::size_t>& order = {});

}  // namespace tallowmark::testing
