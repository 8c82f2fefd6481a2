// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "HostileRun.h"
#include "Tests/Support/Clips.h"

namespace tallowmark::testing {
namespace {

constexpr std::size_t sizes = 3;
// Twice as long, and what caches add.
constexpr double mostGrowth = 2.3;
// In the suite, where other tests run beside it. Four is what is looked for.
constexpr double mostGrowthInTheSuite = 3;
constexpr double tooShortToTell = 0.005;
// In proportion is not enough: an hour for a photo is, too.
constexpr double mostSecondsForAMegabyte = 2;
constexpr int fewestRounds = 2;
constexpr int mostRounds = 16;

using Costs = std::array<Cost, sizes>;

/// From one size to the next, over both steps.
double growth(const Costs& costs) {
  return costs.back().seconds < tooShortToTell
             ? 0
             : std::sqrt(costs.back().seconds / costs.front().seconds);
}

void print(const HostileCase& hostile, const Costs& costs, double megabytes) {
  std::printf("| %-28s | %8.2f | %7.1f %7.1f %7.1f | %4.2f | %4.0f of %3u |\n", hostile.name,
              megabytes, costs[0].seconds * 1e3, costs[1].seconds * 1e3, costs[2].seconds * 1e3,
              growth(costs), costs.back().megabytes, hostile.ceiling);
}

class Hostile : public ::testing::TestWithParam<HostileCase> {};

// MB of the largest file, milliseconds for each of three sizes, how they grow from one to the next,
// peak memory. The fastest of several rounds counts: the machine's other work only adds.
TEST_P(Hostile, costsInProportion) {
  if (!canMakeClips()) {
    GTEST_SKIP() << "no ffmpeg";
  }
  const HostileCase& hostile = GetParam();
  const char* const asked = std::getenv("TALLOWMARK_HOSTILE_SIZE");
  const double factor = asked != nullptr ? std::strtod(asked, nullptr) : 1;
  const auto least = std::max<std::size_t>(
      1, static_cast<std::size_t>(static_cast<double>(hostile.size) * factor));
  const TemporaryFolder folder;
  const auto fileOf = [&](std::size_t i) { return folder / std::to_string(i); };
  for (std::size_t i = 0; i < sizes; ++i) {
    ASSERT_TRUE(costOf([&] { hostile.make(fileOf(i), least << i); }));
  }
  Costs best;
  for (int round = 0; round < mostRounds && (round < fewestRounds || growth(best) > mostGrowth);
       ++round) {
    for (std::size_t i = 0; i < sizes; ++i) {
      const auto cost = costOf([&] { hostile.use(fileOf(i)); });
      ASSERT_TRUE(cost) << "at " << (least << i);
      best[i].seconds = round == 0 ? cost->seconds : std::min(best[i].seconds, cost->seconds);
      best[i].megabytes = std::max(best[i].megabytes, cost->megabytes);
    }
  }
  const double megabytes = static_cast<double>(std::filesystem::file_size(fileOf(sizes - 1))) / 1e6;
  print(hostile, best, megabytes);
  EXPECT_LE(growth(best), asked != nullptr ? mostGrowth : mostGrowthInTheSuite);
  EXPECT_LE(best.back().seconds, 1 + megabytes * mostSecondsForAMegabyte);
  EXPECT_LE(best.back().megabytes, hostile.ceiling);
}

std::vector<HostileCase> allCases() {
  std::vector<HostileCase> all;
  for (const auto& cases : {hostileClips(), hostileIndexes(), hostileLists(), hostilePhotos()}) {
    all.insert(all.end(), cases.begin(), cases.end());
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(Files, Hostile, ::testing::ValuesIn(allCases()),
                         [](const auto& hostile) { return std::string(hostile.param.name); });

}  // namespace
}  // namespace tallowmark::testing
