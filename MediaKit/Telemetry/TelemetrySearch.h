// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/MediaWindow.h"
#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

/// Finds the telemetry trees of a file. What only looks like one costs a read of what it claims;
/// over its life a search spends no more on these than a few times the file's size, and a file made
/// to be slow is given up part of the way.
class TelemetrySearch {
 public:
  /// The source must outlive it.
  explicit TelemetrySearch(const ByteSource& source);

  /// The trees that begin in `stretch` and end at or before `reach`, in order, none over another.
  /// Throws DeviceError.
  std::vector<ByteRange> in(const ByteRange& stretch, std::uint64_t reach);

 private:
  std::optional<std::uint64_t> nextOpening(std::uint64_t from, const ByteRange& stretch);

  const ByteSource& source_;
  MediaWindow window_;
  std::uint64_t bytesToTry_;
};

}  // namespace tallowmark
