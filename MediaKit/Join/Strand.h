// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "MediaKit/Join/Part.h"

namespace tallowmark::ClipJoin {

/// One track of the joined clip on its way through the parts.
struct Strand {
  /// The matching track of each part; they belong to the parts.
  std::vector<const Track*> pieces;

  const Track& first() const { return *pieces.front(); }
};

/// How long each piece of each strand lasts in the joined clip, in ticks of its track:
/// lengths[strand][part]. A piece keeps its own length unless the tracks of the next part would
/// then start apart: see docs/joining.md.
std::vector<std::vector<std::uint64_t>> pieceLengths(std::span<const Part> parts,
                                                     std::span<const Strand> strands);

/// Appends every sample of `piece`, its offset moved by `delta`, with its last durations changed so
/// that the whole lasts `ticks`, as pieceLengths gave them.
void appendLasting(SampleList& joined, const SampleList& piece, std::uint64_t delta,
                   std::uint64_t ticks);

/// How many samples at the end can together give `ticks` of their time and still last half as long
/// as before, or, of a short list, be there at all. 0 when that is not to be had.
std::uint64_t tailThatGives(const SampleList& samples, std::uint64_t ticks);

}  // namespace tallowmark::ClipJoin
