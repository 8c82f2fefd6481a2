// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Imaging/ReadMap.h"

#include <gtest/gtest.h>

#include <random>

namespace tallowmark {
namespace {

using State = ReadMap::State;

TEST(ReadMaps, keepWhatWasMarkedLast) {
  constexpr std::size_t size = 97;
  std::minstd_rand random(1);
  ReadMap map(size);
  std::vector<State> plain(size, State::untried);
  for (int step = 0; step < 2000; ++step) {
    const std::size_t offset = random() % size;
    const std::size_t length = random() % (size - offset + 1);
    const auto state = static_cast<State>(random() % 3);
    map.mark(offset, length, state);
    std::fill_n(plain.begin() + std::ptrdiff_t(offset), length, state);

    const auto again = ReadMap::parse(map.text());
    ASSERT_TRUE(again);
    for (const State each : {State::untried, State::read, State::bad}) {
      std::vector<State> seen(size, State::untried);
      std::uint64_t end = 0;
      std::uint64_t bytes = 0;
      for (const auto& stretch : map.stretches(each)) {
        ASSERT_TRUE(end == 0 || stretch.offset > end) << "not joined";
        end = stretch.offset + stretch.length;
        bytes += stretch.length;
        for (auto at = stretch.offset; at < end; ++at) ASSERT_EQ(plain[at], each);
      }
      ASSERT_EQ(bytes, std::count(plain.begin(), plain.end(), each));
      ASSERT_EQ(map.bytes(each), bytes);
      ASSERT_EQ(again->stretches(each), map.stretches(each));
    }
  }
}

TEST(ReadMaps, claimLessWhenTheyAreCutShortAndNothingWhenTheyAreWrong) {
  ReadMap map(1'000'000);
  map.mark(0, 512'000, State::read);
  map.mark(600'000, 1000, State::bad);
  const std::string whole = map.text();
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const auto cut = ReadMap::parse(whole.substr(0, length));
    if (!cut) continue;
    ASSERT_EQ(cut->size(), 1'000'000U);
    EXPECT_TRUE(cut->bytes(State::read) == 0 || cut->bytes(State::read) == 512'000) << length;
  }
  const std::string head = "tallowmark map 1\nsize 1000\n";
  EXPECT_TRUE(ReadMap::parse(head + "\n# a remark\nread 0 1000\n"));
  for (const char* wrong : {"read 0 1001\n", "read 1001 0\n", "bad 999 2\n", "read -1 5\n",
                            "read 0\n", "good 0 5\n", "read 0 5 5\n", "read 0x0 5\n",
                            "bad 1 18446744073709551615\n", "read 0 99999999999999999999\n"}) {
    EXPECT_FALSE(ReadMap::parse(head + wrong)) << wrong;
  }
  for (const char* wrong : {"", "size 5\n", "tallowmark map 2\nsize 5\n", "tallowmark map 1\n"}) {
    EXPECT_FALSE(ReadMap::parse(wrong)) << wrong;
  }
}

}  // namespace
}  // namespace tallowmark
