// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>

#include "MediaKit/Join/JoinOutline.h"

namespace tallowmark::ClipJoin {

/// Says how long each piece of each strand lasts. A piece keeps its own length unless the tracks of
/// the next part would then start apart.
void timePieces(std::span<const Part> parts, std::span<Strand> strands);

/// Appends every sample of `piece`, its offset moved by `delta`, with its last durations changed so
/// that the whole lasts `ticks`: at least as long as before, or shorter by what tailThatGives has.
void appendLasting(SampleList& joined, const SampleList& piece, std::uint64_t delta,
                   std::uint64_t ticks);

/// How many samples at the end can together give `ticks` of their time and still last half as long
/// as before, or, of a short list, be there at all. 0 when that is not to be had.
std::uint64_t tailThatGives(const SampleList& samples, std::uint64_t ticks);

}  // namespace tallowmark::ClipJoin
