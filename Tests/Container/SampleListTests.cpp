// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/SampleList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace tallowmark {
namespace {

std::vector<Sample> plain(const SampleList& list) {
  return {list.begin(), list.end()};
}

// Runs are a way to store a sequence: whatever is done, it must come out as with a plain one.
TEST(SampleLists, behaveAsASequenceOfSamples) {
  std::mt19937 random(7);
  const auto below = [&](std::uint32_t limit) {
    return static_cast<std::uint32_t>(random() % limit);
  };
  for (int round = 0; round < 200; ++round) {
    SampleList list;
    std::vector<Sample> expected;
    std::uint64_t offset = 0;
    while (expected.size() < 300) {
      offset = below(3) == 0 ? offset + below(5) : offset;
      Sample sample{offset, below(3), 1 + below(2), static_cast<std::int32_t>(below(2)),
                    below(2) == 0};
      const std::uint64_t count = 1 + below(5);
      list.append(sample, count);
      for (std::uint64_t i = 0; i < count; ++i, sample.offset += sample.size) {
        expected.push_back(sample);
      }
      offset = sample.offset;
      if (below(3) == 0) {
        list.removeLast();
        expected.pop_back();
      }
    }
    ASSERT_EQ(plain(list), expected);
    ASSERT_EQ(list.size(), expected.size());
    const std::uint64_t from = below(200);
    const std::uint64_t to = from + below(200);
    const auto slice = plain(list.slice(from, to));
    for (std::uint64_t i = 0; i < slice.size(); ++i) ASSERT_EQ(slice[i], expected[from + i]);
    ASSERT_EQ(slice.size(), std::min<std::uint64_t>(to, expected.size()) - from);
    ASSERT_EQ(list[from], expected[from]);

    const std::uint64_t limit = below(static_cast<std::uint32_t>(offset) + 1);
    std::erase_if(expected, [&](const Sample& s) { return s.offset + s.size > limit; });
    ASSERT_EQ(plain(list.endingBy(limit)), expected);
  }
}

TEST(SampleLists, countWithoutOverflow) {
  SampleList list;
  list.append({.offset = 1ULL << 62U, .size = ~0U, .duration = ~0U}, 1ULL << 40U);
  EXPECT_EQ(list.duration(), ~0ULL);
  EXPECT_EQ(list.runs().front().end(), ~0ULL);
  EXPECT_TRUE(list.endingBy(1000).empty());
}

TEST(SampleLists, knowTheMostCommonDuration) {
  SampleList list;
  EXPECT_EQ(list.typicalDuration(), 1U);
  list.append({.offset = 0, .size = 1, .duration = 1002});
  list.append({.offset = 9, .size = 1, .duration = 1001}, 20);
  list.append({.offset = 99, .size = 1, .duration = 1002}, 3);
  EXPECT_EQ(list.typicalDuration(), 1001U);
}

}  // namespace
}  // namespace tallowmark
