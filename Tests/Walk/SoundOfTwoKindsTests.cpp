// SPDX-License-Identifier: GPL-3.0-or-later
// Clips with sound tracks of several kinds, of which not all can be found without an index.
#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

namespace fs = std::filesystem;
using testing::Comparison;
using testing::Filling;
using testing::Victim;

/// Pictures and sound tracks, made by the encoders of these names.
struct Kinds {
  const char* label;
  std::vector<const char*> encoders;
  const char* container;
  /// Chunks of half a second; a few samples of each track in turn otherwise.
  bool isInChunks = false;
};

class SoundOfTwoKinds : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
  }

  fs::path clipOf(const Kinds& kinds, int variant) const {
    fs::path clip = folder_ / (std::to_string(variant) + '.' + kinds.container);
    std::vector<std::string> command{
        "ffmpeg", "-v",    "error", "-y",
        "-f",     "lavfi", "-i",    "testsrc2=size=320x240:rate=25,noise=alls=8:allf=t",
        "-map",   "0:v"};
    if (variant > 0) command[7] += ",hue=h=90";
    for (std::size_t i = 0; i < kinds.encoders.size(); ++i) {
      const std::string number = std::to_string(i);
      command.insert(
          command.begin() + 8,
          {"-f", "lavfi", "-i", testing::livelySound(2, 48000, variant + static_cast<int>(i))});
      command.insert(command.end(), {"-map", std::to_string(i + 1) + ":a", "-c:a:" + number,
                                     kinds.encoders[i], "-strict", "-2"});
    }
    command.insert(command.end(), {"-t", "6", "-c:v", "libx264", "-preset", "veryfast", "-pix_fmt",
                                   "yuv420p", "-x264-params", "keyint=25:scenecut=0:bframes=2"});
    if (kinds.isInChunks) command.insert(command.end(), {"-chunk_duration", "500000"});
    command.push_back(clip.string());
    if (const auto made = testing::run(command); made.exitCode != 0) {
      throw std::runtime_error("ffmpeg: " + made.errors);
    }
    return clip;
  }

 private:
  testing::TemporaryFolder folder_;
};

std::uint64_t bytesOf(const Comparison& c, const char* track) {
  const auto found = c.result.unusedBy.byTrack.find(track);
  return found == c.result.unusedBy.byTrack.end() ? 0 : found->second;
}

TEST_F(SoundOfTwoKinds, bringsTheAACBackAndNothingElse) {
  const Kinds rows[] = {{"Opus behind each block", {"aac", "libopus"}, "mp4"},
                        {"Opus ahead of each block", {"libopus", "aac"}, "mp4"},
                        {"ALAC first", {"alac", "aac"}, "mov"},
                        {"ALAC first, in chunks", {"alac", "aac"}, "mov", true},
                        {"AC-3 first", {"ac3", "aac"}, "mov"},
                        {"AC-3 and ALAC", {"ac3", "aac", "alac"}, "mov"}};
  for (const Kinds& row : rows) {
    SCOPED_TRACE(row.label);
    const fs::path clip = clipOf(row, 0);
    for (const fs::path& reference : {clip, clipOf(row, 1)}) {
      const Comparison c = rebuildAndCompare(Victim(clip), reference);
      EXPECT_EQ(c.exact, c.frames);
      EXPECT_GE(c.blocks, 280U);
      EXPECT_EQ(c.blocksExact, c.blocks);
      EXPECT_EQ(c.blocksInvented, 0U);
      EXPECT_LT(std::abs(c.worstTime), 0.05);
      EXPECT_EQ(c.result.unusedBy.total(), c.result.unusedBytes);
      for (unsigned seed = 0; seed < 4; ++seed) {
        Victim victim(clip);
        victim.punch(seed, 1 + 3 * seed, 4096, Filling::noise);
        const Comparison holes = rebuildAndCompare(victim, reference);
        EXPECT_EQ(holes.blocksInvented, 0U) << seed;
        EXPECT_GE((holes.blocksExact + holes.blocksBeforeKeyframe) * 100, holes.blocks * 97)
            << seed;
      }
    }
  }
}

TEST_F(SoundOfTwoKinds, keepsPCMApartFromAACBesideIt) {
  const Kinds rows[] = {{"in turn", {"pcm_s16le", "aac"}, "mov"},
                        {"24 bits", {"pcm_s24be", "aac"}, "mov"},
                        {"in chunks", {"pcm_s16le", "aac"}, "mov", true}};
  for (const Kinds& row : rows) {
    SCOPED_TRACE(row.label);
    const fs::path clip = clipOf(row, 0);
    for (const fs::path& reference : {clip, clipOf(row, 1)}) {
      const Comparison c = rebuildAndCompare(Victim(clip), reference);
      EXPECT_EQ(c.exact, c.frames);
      EXPECT_EQ(c.soundRight, c.sound);
      EXPECT_EQ(c.soundWrong, 0U);
      EXPECT_LT(std::abs(c.worstTime), 0.05);
      EXPECT_GT(bytesOf(c, "mp4a"), 50'000U);
      EXPECT_EQ(c.result.unusedBy.total(), c.result.unusedBytes);
      for (unsigned seed = 0; seed < 4; ++seed) {
        Victim victim(clip);
        victim.punch(seed, 1 + 3 * seed, 4096, Filling::noise);
        const Comparison holes = rebuildAndCompare(victim, reference);
        EXPECT_EQ(holes.soundWrong, 0U) << seed;
      }
    }
  }
}

// Nothing tells where PCM begins behind sound that takes as many bytes as it likes.
TEST_F(SoundOfTwoKinds, leavesPCMOutRatherThanBlendIt) {
  for (const bool isInChunks : {false, true}) {
    const Kinds kinds{"ALAC first", {"alac", "pcm_s16le"}, "mov", isInChunks};
    const fs::path clip = clipOf(kinds, 0);
    for (const fs::path& reference : {clip, clipOf(kinds, 1)}) {
      const Comparison c = rebuildAndCompare(Victim(clip), reference);
      EXPECT_EQ(c.exact, c.frames);
      EXPECT_LT(std::abs(c.worstTime), 1.05);
      EXPECT_EQ(c.result.audioPackets, 0U);
      EXPECT_TRUE(c.result.audioDropped);
      EXPECT_EQ(c.result.unusedBy.total(), c.result.unusedBytes);
    }
  }
}

// What stands between the pictures is no loss, though nothing of it comes back.
TEST_F(SoundOfTwoKinds, keepsThePicturesTimeWhereNoneIsFound) {
  const Kinds alac{"ALAC", {"alac"}, "mov", true};
  const fs::path clip = clipOf(alac, 0);
  for (const fs::path& reference : {clip, clipOf(alac, 1)}) {
    const Comparison c = rebuildAndCompare(Victim(clip), reference);
    EXPECT_EQ(c.exact, c.frames);
    EXPECT_LT(std::abs(c.worstTime), 0.05);
    EXPECT_NEAR(c.result.seconds, 6, 0.05);
    EXPECT_TRUE(c.result.audioDropped);
  }
}

}  // namespace
}  // namespace tallowmark
