// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string>
#include <unordered_set>
#include <vector>

namespace tallowmark {

/// How many blocks of sound stand in one gap after another, and which track is ahead then, as a
/// reference's index shows it. Where two tracks take turns from gap to gap, it tells which of them
/// it was that began.
class GapRhythm {
 public:
  /// Gaps that are looked at together, at most. Tracks that begin half a block apart differ in few
  /// of them.
  static constexpr std::size_t longest = 32;

  /// Learns the reference's next gap. `lead`: by how many blocks each track is ahead behind it.
  void learn(std::size_t blocks, const std::vector<std::uint16_t>& lead);

  /// Whether the reference has gaps of so many blocks one after the other with that lead behind the
  /// last. True for a few gaps, and where the reference is too short to have all that its rhythm
  /// has.
  bool has(std::span<const std::size_t> gaps, const std::vector<std::uint16_t>& lead) const;

 private:
  std::deque<std::size_t> last_;
  std::unordered_set<std::u16string> seen_;
  std::size_t learnt_ = 0;
  /// By the number of gaps together: the gap with which the last new ones came.
  std::array<std::size_t, longest + 1> lastNew_{};
  bool hasTooMany_ = false;
};

}  // namespace tallowmark
