// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/GapRhythm.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace tallowmark {

namespace {

// Looked up are 4, 8, 16 and 32 gaps together. Sound and pictures at constant rates make a few
// dozen of each.
constexpr std::size_t shortest = 4;
constexpr std::size_t mostSeen = std::size_t{16} << 10U;
// What fewer gaps lack may be usual all the same.
constexpr std::size_t enoughGaps = 256;

char16_t letter(std::size_t number) {
  return static_cast<char16_t>(std::min<std::size_t>(number, std::numeric_limits<char16_t>::max()));
}

std::u16string wordOf(const std::vector<std::uint16_t>& lead) {
  std::u16string word;
  for (const std::uint16_t ahead : lead) word += letter(ahead);
  return word;
}

}  // namespace

void GapRhythm::learn(std::size_t blocks, const std::vector<std::uint16_t>& lead) {
  ++learnt_;
  last_.push_front(blocks);
  if (last_.size() > longest) {
    last_.pop_back();
  }
  std::u16string word = wordOf(lead);
  for (std::size_t i = 0; i < last_.size() && !hasTooMany_; ++i) {
    word += letter(last_[i]);
    if (i + 1 >= shortest && std::has_single_bit(i + 1) && seen_.insert(word).second) {
      lastNew_.at(i + 1) = learnt_;
    }
  }
  hasTooMany_ = hasTooMany_ || seen_.size() > mostSeen;
}

bool GapRhythm::has(std::span<const std::size_t> gaps,
                    const std::vector<std::uint16_t>& lead) const {
  // Half of the reference without anything new: it has all there is.
  std::size_t length = std::bit_floor(gaps.size());
  while (length >= shortest && learnt_ < 2 * lastNew_.at(length)) length /= 2;
  if (length < shortest || learnt_ < enoughGaps || hasTooMany_) {
    return true;
  }
  std::u16string word = wordOf(lead);
  for (std::size_t i = 0; i < length; ++i) word += letter(gaps[gaps.size() - 1 - i]);
  return seen_.contains(word);
}

}  // namespace tallowmark
