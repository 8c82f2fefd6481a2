// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "MediaKit/Bitstream/NALFormat.h"

namespace tallowmark {

/// A sample entry for a stream in which up to `pictures` are decoded before one and shown after it.
/// Where the entry's parameter sets tell a decoder to hold back fewer, it would show them too early
/// and out of order: these sets are written anew with that number, and with as many pictures to be
/// kept as that takes. Everything else stays byte for byte; so does an entry that allows as many,
/// says nothing, or cannot be read.
std::vector<std::uint8_t> allowingReordering(std::span<const std::uint8_t> sampleEntry,
                                             NALFormat::Codec codec, std::size_t pictures);

}  // namespace tallowmark
