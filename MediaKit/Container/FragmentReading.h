// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>

#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/Movie.h"

/// One movie fragment (ISO/IEC 14496-12 §8.8).
namespace tallowmark::MovieFragments {

/// What samples are like that do not say it themselves (§8.8.3).
struct Defaults {
  std::uint32_t duration = 0;
  std::uint32_t size = 0;
  std::uint32_t flags = 0;
};

/// Of the tracks that the index describes.
using DefaultsByTrack = std::map<std::uint32_t, Defaults>;

/// Those of the tracks of `movie`, by the index's mvex box.
DefaultsByTrack readDefaults(const Box& extends, const BoxReader& reader, const Movie& movie);

/// Where the data of runs stands.
struct DataPlace {
  std::uint64_t base = 0;
  /// How far all has moved, modulo 2^64, since the file said where it is.
  std::uint64_t moved = 0;
  /// Behind the run ahead: there stand the samples of a run that does not say where.
  std::uint64_t next = 0;
  /// Bytes that samples without fields of their own may still claim: no more than the file has, for
  /// a few bytes could claim them over and over.
  std::uint64_t unclaimed = 0;
  /// Of samples, so far.
  std::size_t runs = 0;

  /// How many of `count` samples of that size there can be; these have their bytes then.
  std::uint64_t claim(std::uint64_t count, std::uint32_t size);
};

/// Told what a fragment holds, in its order.
struct FragmentListener {
  /// A track's part begins.
  std::function<void(std::uint32_t trackID)> onTrack;
  /// When its samples start, in the track's timescale.
  std::function<void(std::uint64_t time)> onTime;
  /// So many samples alike, back to back.
  std::function<void(const Sample& first, std::uint64_t count)> onSamples;
};

/// Reads a fragment; says whether it is whole: its boxes fill it to the last byte, and its runs
/// hold just what they announce. Throws MediaError::malformed for an implausibly large box or
/// index, and the source's errors.
bool readFragment(const Box& moof, const BoxReader& reader, const DefaultsByTrack& defaults,
                  DataPlace& place, const FragmentListener& listener);

}  // namespace tallowmark::MovieFragments
