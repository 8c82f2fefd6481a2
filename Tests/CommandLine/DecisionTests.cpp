// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>

#include "CommandLine/OrderedWork.h"
#include "CommandLine/ProgressBar.h"
#include "CommandLine/Sentences.h"
#include "DeviceKit/DeviceError.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Rescue/Explain.h"

namespace tallowmark {
namespace {

TEST(Explanations, sayWhatToDoWhereNoVideoWasFound) {
  EXPECT_EQ(explain(MediaError::noVideo(), false), "No playable video was found in this clip.");
  EXPECT_EQ(explain(MediaError::noVideo(), true),
            "No video from this camera was found in the clip. Check that the reference clip was "
            "recorded on the same camera, at the same resolution and frame rate.");
  EXPECT_EQ(explain(MediaError::unsupported("A sentence."), true), "A sentence.");
  EXPECT_EQ(explain(DeviceError::readFailed(7, EIO), true), DeviceError::readFailed(7, EIO).what());
}

TEST(Durations, readAsClocksDo) {
  const struct {
    double seconds;
    const char* text;
  } rows[] = {{0, "0:00"}, {7.4, "0:07"}, {59.6, "1:00"}, {725, "12:05"}, {3723, "1:02:03"}};
  for (const auto& [seconds, text] : rows) EXPECT_EQ(durationText(seconds), text);
}

TEST(ProgressTexts, fitTheTerminal) {
  EXPECT_EQ(progressText(0.45, 120e6, 11.2, 80),
            "[" + std::string(18, '#') + std::string(22, '.') + "]  45 %  120 MB/s  0:12 left");
  EXPECT_EQ(progressText(0, 0, 0, 80), "[" + std::string(40, '.') + "]   0 %");
  for (std::size_t width = 1; width < 80; ++width) {
    EXPECT_LE(progressText(1, 999e6, 100'000, width).size(), width);
  }
}

TEST(OrderedWork, reportsInOrderAndKeepsTheLinksOfAChainInOrder) {
  std::vector<std::vector<std::size_t>> chains{{3, 0}, {1, 4, 5}, {2}};
  std::vector<std::size_t> reported;
  std::atomic<int> clock{0};
  std::vector<int> workedAt(6);
  workInOrder(
      chains, [&](std::size_t i) { workedAt[i] = ++clock; },
      [&](std::size_t i) { reported.push_back(i); });
  EXPECT_EQ(reported, (std::vector<std::size_t>{0, 1, 2, 3, 4, 5}));
  EXPECT_LT(workedAt[3], workedAt[0]);
  EXPECT_LT(workedAt[1], workedAt[4]);
  EXPECT_LT(workedAt[4], workedAt[5]);
}

}  // namespace
}  // namespace tallowmark
