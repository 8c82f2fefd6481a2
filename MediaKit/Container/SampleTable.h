// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include "MediaKit/Container/Box.h"
#include "MediaKit/Container/BoxWriter.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// Thirty hours at sixty pictures a second, sound between them, have thirteen million runs. A file
/// of many more is made to take memory.
inline constexpr std::size_t mostSampleRuns = std::size_t{32} << 20U;

/// Reads a track's sample table (ISO/IEC 14496-12 §8.5 to §8.7) into its codec, sample entry and
/// samples. Tables that claim more than they hold end where their bytes do; time grows with table
/// entries, never with the number of samples they claim, memory with the runs that come of them.
/// Throws MediaError::malformed for an implausibly large box or index, and the source's errors.
void readSampleTable(const Box& stbl, const BoxReader& reader, Track& track);

/// Writes the sample table of a track whose offsets count from `mediaStart` (modulo 2^64). Throws
/// MediaError::malformed when a counter or a box outgrows its 32 bits.
void writeSampleTable(const Track& track, std::uint64_t mediaStart, BoxWriter& writer);

}  // namespace tallowmark
