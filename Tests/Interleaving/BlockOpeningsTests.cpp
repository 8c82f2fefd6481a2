// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/BlockOpenings.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {
namespace {

// Every position that the habits let pass is found, wherever in a stride it is, and no other.
TEST(BlockOpenings, findsWhatTheHabitsLetPass) {
  SoundHabits habits;
  habits.traits.longBands = std::uint64_t{1} << 49U;
  habits.traits.lowestGain = 130;
  habits.traits.highestGain = 150;
  ByteValues firsts{};
  for (const unsigned first : {0x00U, 0x01U, 0x20U, 0x21U}) firsts.at(first) = true;
  const BlockOpenings openings(habits, firsts);
  std::vector<std::uint8_t> bytes(std::size_t{1} << 20U);
  std::mt19937 random(1);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random() & 0xFFU);
  // A pair whose channels have windows of their own, and one with a common window.
  const std::vector<std::vector<std::uint8_t>> blocks{{0x20, 0x8C, 0x0C, 0x40},
                                                      {0x21, 0x0C, 0x40, 0x00}};
  for (std::size_t i = 0; i < 2000; ++i) {
    const auto& block = blocks[i % blocks.size()];
    std::copy(block.begin(), block.end(), bytes.begin() + static_cast<std::ptrdiff_t>(i * 521));
  }
  std::vector<std::size_t> expected;
  const std::size_t count = bytes.size() - 4;
  for (std::size_t at = 0; at < count; ++at) {
    if (firsts[bytes[at]] && habits.mayBeginAs(bigEndian<std::uint32_t>(bytes, at))) {
      expected.push_back(at);
    }
  }
  std::vector<std::size_t> found;
  const std::span<const std::uint8_t> all(bytes);
  for (std::size_t at = 0; at < count; ++at) {
    at += openings.find(habits, all.subspan(at), count - at);
    if (at < count) {
      found.push_back(at);
    }
  }
  EXPECT_GE(found.size(), 2000U);
  EXPECT_EQ(found, expected);
}

}  // namespace
}  // namespace tallowmark
