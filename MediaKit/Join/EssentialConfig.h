// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Container/Movie.h"

namespace tallowmark::ClipJoin {

/// The bytes of a sample entry that must be equal for two tracks to be decoded as one: all but the
/// box size and what tells of the bit rate, which differs from file to file. Never throws.
std::vector<std::uint8_t> essentialConfig(std::span<const std::uint8_t> sampleEntry,
                                          Track::Kind kind);

/// Of an elementary-stream descriptor box (ISO/IEC 14496-1 §7.2.6.5): object type, stream type and
/// decoder-specific bytes. Nothing when it cannot be read.
std::optional<std::vector<std::uint8_t>> esdsEssentials(std::span<const std::uint8_t> esds);

}  // namespace tallowmark::ClipJoin
