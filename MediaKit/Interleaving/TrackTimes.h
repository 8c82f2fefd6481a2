// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tallowmark {

/// When the blocks of several tracks begin, as the pictures tell between which they stand: blocks
/// last equally long, and so do pictures of a constant rate. Times are in blocks.
class TrackTimes {
 public:
  /// `picture`: how long one lasts. `ahead`: blocks of each track before the first one.
  TrackTimes(double picture, std::span<const std::uint16_t> ahead);

  /// Blocks of these tracks stand between picture number `frame` and the one before it.
  void add(std::span<const std::uint8_t> tracks, std::uint64_t frame);
  /// Either may be so.
  void widenTo(const TrackTimes& other);

  std::size_t gaps() const { return gaps_; }
  /// No times are such as would let all blocks stand where they do.
  bool areImpossible() const;
  /// How many blocks later than before a track's last ones are, by the least that can be.
  double lag() const;
  /// Its tracks may begin as far apart as those of `other`.
  bool areAsFarApartAs(const TrackTimes& other) const;

 private:
  /// Of a track's block number zero.
  struct Bounds {
    double earliest = 0;
    double latest = 0;
    bool isBound = false;
    /// Of the last blocks alone.
    double last = 0;
  };
  struct Clock {
    Bounds start;
    std::uint64_t blocks = 0;
  };

  double picture_;
  std::vector<Clock> tracks_;
  std::size_t gaps_ = 0;
  std::uint64_t frame_ = 0;
};

}  // namespace tallowmark
