// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <vector>

namespace tallowmark {

/// How the blocks of sound tracks that look alike follow one another between two pictures, as a
/// reference's index shows it. Tracks count from 0.
class TrackOrder {
 public:
  using Order = std::vector<std::uint8_t>;

  /// What blocks in a row lie against: the picture before them, the one behind, both or neither.
  enum class Anchor { neither, start, end, both };

  explicit TrackOrder(std::size_t tracks = 1) : tracks_(tracks) {}

  /// Learns the tracks of the blocks between two pictures of the reference.
  void learn(const Order& order);
  /// Learns that a clip whose tracks take turns has so many blocks between two pictures.
  void learnCount(std::size_t blocks);

  /// The tracks of `blocks` blocks in a row; nothing for one that could be of several.
  std::vector<std::optional<std::size_t>> tell(std::size_t blocks, Anchor anchor) const;

 private:
  std::vector<Order> possible(std::size_t blocks, Anchor anchor) const;
  std::vector<Order> ordersOf(std::size_t share) const;

  std::size_t tracks_;
  /// As many blocks of one track as of the next: all of one track first, or one of each in turn.
  bool takeTurnsByGap_ = true;
  bool takeTurnsByBlock_ = true;
  std::size_t leastShare_ = std::numeric_limits<std::size_t>::max();
  std::size_t mostShare_ = 0;
  /// All orders there are, while these are few.
  std::set<Order> seen_;
  bool hasTooMany_ = false;
  /// Tracks whose places in a gap its number of blocks does not tell.
  std::set<std::uint8_t> doubtful_;
};

}  // namespace tallowmark
