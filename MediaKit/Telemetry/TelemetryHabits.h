// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// How a camera stores its telemetry beside the pictures, as the reference's index shows it.
struct TelemetryHabits {
  /// The track's number in the movie's list.
  std::size_t track = 0;
  /// Trees that one sample holds, one for each device.
  std::size_t treesPerSample = 1;
  /// Seconds of pictures stored before a sample, beyond the time at which it starts.
  double lag = 0;
  /// The most seconds of pictures that are stored between a sample and the next.
  double longestStep = 0;
  /// The last sample is shorter than the others: it ends with the pictures.
  bool endsWithPictures = false;

  /// Nothing when the movie has no telemetry track ("gpmd") whose samples are trees from end to
  /// end. Throws DeviceError.
  static std::optional<TelemetryHabits> learn(const Movie& reference, const ByteSource& source);
};

}  // namespace tallowmark
