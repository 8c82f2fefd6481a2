// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/BlockOpenings.h"

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {

BlockOpenings::BlockOpenings(const SoundHabits& habits, const ByteValues& firsts)
    : firsts_(firsts), first_(firsts) {
  ByteValues seconds{};
  ByteValues thirds{};
  // Of the fourth byte nothing but the first two bits is looked at.
  for (std::uint32_t first = 0; first < firsts.size(); ++first) {
    for (std::uint32_t rest = 0; firsts.at(first) && rest < 1U << 18U; ++rest) {
      if (habits.mayBeginAs((first << 24U) | (rest << 6U))) {
        seconds.at(rest >> 10U) = true;
        thirds.at((rest >> 2U) & 0xFFU) = true;
      }
    }
  }
  second_ = ByteSet<1>(seconds);
  third_ = ByteSet<4>(thirds);
}

bool BlockOpenings::mayOpen(const SoundHabits& habits, std::span<const std::uint8_t> bytes) const {
  return firsts_[bytes[0]] &&
         (bytes.size() < 4 || habits.mayBeginAs(bigEndian<std::uint32_t>(bytes, 0)));
}

std::size_t BlockOpenings::find(const SoundHabits& habits, std::span<const std::uint8_t> bytes,
                                std::size_t count) const {
  std::size_t at = 0;
  for (; at + stride <= count && at + stride + 2 <= bytes.size(); at += stride) {
    if (mayOpenInStride(bytes.data() + at)) {
      const std::size_t found = findInStride(habits, bytes.subspan(at));
      if (found < stride) {
        return at + found;
      }
    }
  }
  while (at < count && !mayOpen(habits, bytes.subspan(at))) {
    ++at;
  }
  return at;
}

// One question for four steps: most strides have none by their first bytes.
bool BlockOpenings::mayOpenInStride(const std::uint8_t* data) const {
  ByteLanes::Mask any{};
  for (std::size_t at = 0; at < stride; at += ByteLanes::width) any |= first_.has(data + at);
  return ByteLanes::any(any);
}

std::size_t BlockOpenings::findInStride(const SoundHabits& habits,
                                        std::span<const std::uint8_t> bytes) const {
  for (std::size_t at = 0; at < stride; at += ByteLanes::width) {
    const std::uint8_t* const data = bytes.data() + at;
    ByteLanes::Mask lanes = first_.has(data);
    if (!ByteLanes::any(lanes)) {
      continue;
    }
    lanes &= second_.has(data + 1) & third_.has(data + 2);
    for (std::size_t lane = 0; ByteLanes::any(lanes) && lane < ByteLanes::width; ++lane) {
      if (lanes[lane] != 0 && mayOpen(habits, bytes.subspan(at + lane))) {
        return at + lane;
      }
    }
  }
  return stride;
}

}  // namespace tallowmark
