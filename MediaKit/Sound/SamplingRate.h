// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// The sampling rate that the description of a track of PCM or AAC-LC states, where its ticks are
/// samples. Nothing for others, nor where band replication may change what is heard.
std::optional<std::uint32_t> samplingRateOf(const Track& track);

/// Gives such a track another one, in its description and its ticks. Returns whether it could: AAC
/// has a list of rates.
bool setSamplingRate(Track& track, std::uint32_t rate);

}  // namespace tallowmark
