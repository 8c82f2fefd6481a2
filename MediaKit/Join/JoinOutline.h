// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Join/Part.h"

namespace tallowmark::ClipJoin {

/// One track of the joined clip on its way through the parts.
struct Strand {
  /// The matching track of each part; they belong to the parts.
  std::vector<const Track*> pieces;
  /// How long each piece lasts in the joined clip, in ticks of the track: see docs/joining.md.
  std::vector<std::uint64_t> lengths;
  /// Further start delay, in the timescale of the first part's movie: parts without samples.
  std::uint64_t delay = 0;

  const Track& first() const { return *pieces.front(); }
  /// In ticks of the track.
  std::uint64_t duration() const;
};

/// What a join will be, without its samples: it borrows the parts.
struct Outline {
  /// In the order of the first part.
  std::vector<Strand> strands;
  /// The stretch of each part that holds the samples of all strands.
  std::vector<ByteRange> ranges;
  std::int64_t kept = 0;
  std::int64_t dropped = 0;

  const Strand* firstOf(Track::Kind kind) const;
};

/// Chooses the tracks that every part has, and times their pieces. Never throws.
Outline outline(std::span<const Part> parts);

}  // namespace tallowmark::ClipJoin
