// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "MediaKit/Container/ByteSet.h"
#include "MediaKit/Sound/SoundHabits.h"

namespace tallowmark {

/// The bytes that a camera's AAC blocks open with, for the search through gigabytes of other data:
/// three bytes refuse nearly every position.
class BlockOpenings {
 public:
  BlockOpenings() = default;
  /// `firsts`: what a block may begin with.
  BlockOpenings(const SoundHabits& habits, const ByteValues& firsts);

  /// The first of the `count` positions of `bytes` at which a block may open; `count` when there is
  /// none. Bytes behind these are looked at as far as they are there. `habits`: the ones it was
  /// made of.
  std::size_t find(const SoundHabits& habits, std::span<const std::uint8_t> bytes,
                   std::size_t count) const;

 private:
  static constexpr std::size_t stride = 4 * ByteLanes::width;

  bool mayOpen(const SoundHabits& habits, std::span<const std::uint8_t> bytes) const;
  bool mayOpenInStride(const std::uint8_t* data) const;
  std::size_t findInStride(const SoundHabits& habits, std::span<const std::uint8_t> bytes) const;

  ByteValues firsts_{};
  ByteSet<2> first_;
  ByteSet<1> second_;
  ByteSet<4> third_;
};

}  // namespace tallowmark
