// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/MediaWindow.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

/// Bytes by the format code of the track they are of.
using BytesByTrack = std::map<std::string, std::uint64_t>;

/// How the samples of a track look that is neither picture nor sound.
struct SideTrackHabit {
  /// The format code, such as "mebx".
  std::string name;
  std::uint32_t smallest = 0xFFFFFFFFU;
  std::uint32_t largest = 0;
  /// All sizes of samples, where these are few.
  std::set<std::uint32_t> sizes;
  /// The first bytes of every sample; bit i: byte i is always the same.
  std::array<std::uint8_t, 8> opening{};
  std::uint32_t fixed = 0;
  /// Samples are items of a 32-bit size and a small key number, one behind the other (QuickTime
  /// File Format, Timed Metadata Media).
  bool hasItems = false;

  /// Of the tracks that are neither picture nor sound, nor telemetry trees, nor timecode. Throws
  /// DeviceError.
  static std::vector<SideTrackHabit> learn(const Movie& reference, const ByteSource& source);
};

/// Tells what of a stretch between pictures and sound is which side track's, sample by sample from
/// its start; what comes behind something unknown stays untold. Adds it to `found` and returns how
/// much it is. Throws DeviceError.
std::uint64_t addSideTracksIn(const ByteRange& stretch, MediaWindow& window,
                              std::span<const SideTrackHabit> habits, BytesByTrack& found);

}  // namespace tallowmark
