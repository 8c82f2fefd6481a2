// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

/// Where a camera stores the one sample of its timecode track: the number of the first picture's
/// frame (QuickTime File Format, Timecode Media).
struct TimecodePlace {
  /// The track's number in the movie's list.
  std::size_t track = 0;
  /// How many pictures stand before it.
  std::uint64_t pictures = 0;
  /// Bytes between it and the picture or sound before it, and the one behind it.
  std::uint64_t distanceBehind = 0;
  std::uint64_t distanceAhead = 0;
  /// What stands right ahead of it, as far as that is neither picture nor sound.
  std::array<std::uint8_t, 16> ahead{};
  std::size_t aheadSize = 0;
  /// Frames of a day: every value is below. 0 when the description does not tell.
  std::uint64_t framesPerDay = 0;

  static constexpr std::uint64_t valueSize = 4;

  /// Nothing when the movie has no timecode track of one sample between its pictures. Throws
  /// MediaError when `source` is no movie, DeviceError.
  static std::optional<TimecodePlace> learn(const Movie& reference, const ByteSource& source);

  /// The position of the value in `gap`, ahead of which `picturesBefore` pictures stand and nothing
  /// was lost. `known`: the sound in it, in order. Throws DeviceError.
  std::optional<std::uint64_t> find(const ByteSource& source, const ByteRange& gap,
                                    std::span<const ByteRange> known,
                                    std::uint64_t picturesBefore) const;

 private:
  bool holdsAt(const ByteSource& source, std::uint64_t at) const;
};

}  // namespace tallowmark
