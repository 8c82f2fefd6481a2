// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <vector>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Join/Part.h"

/// Chapters as cameras write them, and what must be true of the clip they become.
namespace tallowmark::testing {

/// Cuts a clip into `count` files in `folder` at key frames, all tracks, nothing re-encoded. Sound
/// goes on across the cuts packet by packet; telemetry is dealt out by where it lies in the file;
/// the timecode starts anew in every chapter, counted on.
std::vector<std::filesystem::path> cutIntoChapters(const std::filesystem::path& clip,
                                                   const std::filesystem::path& folder,
                                                   std::size_t count);

std::vector<ClipJoin::Part> readParts(const std::vector<std::filesystem::path>& files);

Movie parsed(const std::filesystem::path& file);

/// Where sample `index` starts, in seconds of media time.
double startOf(const Track& track, std::uint64_t index);

/// The bytes of all samples of a track, in order.
std::vector<std::uint8_t> payloadOf(const std::filesystem::path& file, const Track& track);

}  // namespace tallowmark::testing
