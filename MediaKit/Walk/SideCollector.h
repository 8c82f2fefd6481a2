// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/MediaWindow.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Telemetry/SideTracks.h"
#include "MediaKit/Telemetry/TelemetryHabits.h"
#include "MediaKit/Telemetry/TelemetrySearch.h"
#include "MediaKit/Telemetry/Timecode.h"

namespace tallowmark {

/// What a reference teaches of its tracks that are neither picture nor sound.
struct SideLessons {
  std::optional<TelemetryHabits> telemetry;
  std::optional<TimecodePlace> timecode;
  std::vector<SideTrackHabit> others;

  /// Throws DeviceError.
  static SideLessons learn(const Movie& reference, const ByteSource& source);
};

/// A sample of telemetry in a damaged file.
struct StoredTelemetry {
  /// Number of the picture behind it.
  std::uint64_t frame = 0;
  ByteRange range;
};

/// What a walk finds of such tracks.
struct SideFindings {
  /// In file order.
  std::vector<StoredTelemetry> telemetry;
  /// Position of the timecode's value.
  std::optional<std::uint64_t> timecode;
  /// Bytes of the other tracks.
  BytesByTrack others;
};

/// Gathers telemetry, timecode and the bytes of other side tracks, gap by gap in file order.
class SideCollector {
 public:
  /// Both must outlive it.
  SideCollector(const ByteSource& source, const SideLessons& lessons);

  /// The telemetry trees in a stretch, in order. Throws DeviceError.
  std::vector<ByteRange> telemetryIn(const ByteRange& stretch);

  /// The end of the telemetry tree that begins at or behind `from` and holds what stands at `at`;
  /// nothing when there is none. For searches that move on from one `from`. Throws DeviceError.
  std::optional<std::uint64_t> telemetryOver(std::uint64_t at, std::uint64_t from);

  /// What a gap leaves.
  struct Left {
    /// Bytes that became nothing, and those of them whose track is told.
    std::uint64_t unused = 0;
    std::uint64_t told = 0;
  };
  /// Takes what a gap holds beside its sound and is followed by picture number `frame`. `trees` are
  /// its telemetry. `isIntact`: nothing is lost up to its end. Throws DeviceError.
  Left take(const ByteRange& gap, std::span<const ByteRange> sound, std::vector<ByteRange> trees,
            std::uint64_t frame, bool isIntact);

  /// Bytes of a track that was told elsewhere.
  void tell(const std::string& track, std::uint64_t bytes) { found_.others[track] += bytes; }

  SideFindings result() { return std::move(found_); }

 private:
  void append(std::span<const ByteRange> trees, std::uint64_t frame);

  const ByteSource& source_;
  const SideLessons& lessons_;
  TelemetrySearch search_;
  MediaWindow window_;
  SideFindings found_;
  /// What telemetryOver has gone through, and the trees that it met there.
  ByteRange searched_;
  std::vector<ByteRange> met_;
};

}  // namespace tallowmark
