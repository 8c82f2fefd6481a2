// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/FileSink.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// Told the fraction done, from 0 to 1, on the thread that works.
using Progress = std::function<void(double)>;

/// Offsets from `lower` up to, not including, `upper`.
struct ByteRange {
  std::uint64_t lower = 0;
  std::uint64_t upper = 0;

  std::uint64_t length() const { return upper - lower; }
  friend bool operator==(const ByteRange&, const ByteRange&) = default;
};

/// Media bytes to copy; the source must outlive the segment.
struct Segment {
  const ByteSource* source = nullptr;
  ByteRange range;
};

/// Writes playable movies: file type, one media-data box, the index last (ISO/IEC 14496-12).
/// Media is copied as it is, in pieces; only the index is built in memory.

namespace MovieWriter {

/// Writes `movie`, whose sample offsets count from the first byte of the concatenated segments.
/// Throws MediaError::malformed when a source ends before its range or the index cannot be written,
/// DeviceError of either end, Stopped; what stands in `destination` is then not a movie.
void write(const Movie& movie, std::span<const Segment> segments, FileSink& destination,
           const Progress& progress = {}, const StopToken& stop = {});

/// Writes `movie`, whose sample offsets are positions in `source`, with that one range of it.
void write(const Movie& movie, const ByteSource& source, ByteRange range, FileSink& destination,
           const Progress& progress = {}, const StopToken& stop = {});

/// As above, with bytes that the source lacks behind the range: samples reach them as if the
/// source went on with them from `range.upper`.
void write(const Movie& movie, const ByteSource& source, ByteRange range,
           std::vector<std::uint8_t> bytesBehind, FileSink& destination,
           const Progress& progress = {}, const StopToken& stop = {});

/// The file-type box for a movie that has none.
std::vector<std::uint8_t> defaultFileType();

/// The complete index box of a movie whose sample offsets are absolute.
std::vector<std::uint8_t> moov(const Movie& movie);

}  // namespace MovieWriter
}  // namespace tallowmark
