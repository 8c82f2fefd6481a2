// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Container/Movie.h"

namespace tallowmark::MovieFragments {

/// Appends to one track. The last samples are held back: a fragment that starts later than they end
/// makes the last of them longer.
class TrackEnd {
 public:
  /// Notes in the last of `lost` where the track goes on. Both must outlive it.
  TrackEnd(Track& track, std::vector<LostPiece>& lost)
      : track_(&track), lost_(&lost), time_(track.duration()) {}

  const Track& track() const { return *track_; }
  /// Where the next sample starts, as far as is known.
  std::uint64_t time() const { return time_; }
  double seconds(std::uint64_t ticks) const;

  void startAt(std::uint64_t time);
  void append(const Sample& first, std::uint64_t count);
  void flush();

 private:
  void resume(std::optional<std::uint64_t> ticks);

  Track* track_;
  std::vector<LostPiece>* lost_;
  /// How many lost pieces the track is known to go on behind.
  std::size_t resumed_ = 0;
  Sample held_;
  std::uint64_t count_ = 0;
  std::uint64_t time_ = 0;
};

}  // namespace tallowmark::MovieFragments
