// SPDX-License-Identifier: GPL-3.0-or-later
// Clips whose reference was recorded at another frame rate.
#include <gtest/gtest.h>

#include "Tests/Support/Chunks.h"
#include "Tests/Support/Clips.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::ClipRecipe;
using testing::Comparison;
using testing::makeClip;
using testing::Victim;

class FrameRate : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
  }
};

TEST_F(FrameRate, isTheOneAtWhichSoundRuns) {
  const struct {
    const char* audio;
    const char* container;
    int ofClip;
    int ofReference;
    const char* settings = "";
  } rows[] = {{"aac", "mp4", 25, 50},
              {"aac", "mp4", 50, 25},
              {"aac", "mp4", 24, 25},
              {"aac", "mp4", 30, 25},
              {"aac", "mp4", 15, 30},
              {"aac", "mp4", 20, 30},
              {"pcm_s16le", "mov", 25, 30},
              {"pcm_s16le", "mov", 30, 25},
              {"pcm_s16le", "mov", 30, 50},
              {"pcm_s16le", "mov", 30, 60},
              {"pcm_s16be", "mov", 50, 25},
              {"pcm_s24be", "mov", 60, 30},
              {"pcm_s24le", "mov", 25, 50},
              {"aac", "mp4", 30, 30},
              {"pcm_s16le", "mov", 25, 50, ":repeat-headers=1"},
              {"pcm_s16le", "mov", 60, 30, ":repeat-headers=1"}};
  for (const auto& row : rows) {
    const ClipRecipe clip{.container = row.container,
                          .audio = row.audio,
                          .bFrames = 2,
                          .seconds = 6,
                          .framesPerSecond = row.ofClip,
                          .settings = row.settings};
    ClipRecipe reference = clip;
    reference.framesPerSecond = row.ofReference;
    reference.variant = 1;
    const Comparison c = rebuildAndCompare(Victim(makeClip(clip)), makeClip(reference));
    const auto label = std::string(row.audio) + ' ' + std::to_string(row.ofClip) + " by " +
                       std::to_string(row.ofReference);
    EXPECT_FALSE(c.result.audioDropped) << label;
    EXPECT_EQ(c.exact, c.frames) << label;
    EXPECT_EQ(c.inOrder, c.shared) << label;
    EXPECT_LT(std::abs(c.worstTime), 0.05) << label;
    EXPECT_LT(std::abs(c.worstStep), 1.0) << label;
    EXPECT_EQ(c.soundRight, c.sound) << label;
  }
}

// Before the first loss there may be too little to tell, and counts say nothing of the time of
// pictures that were never taken. Sound does between any two losses.
TEST_F(FrameRate, isToldBesideHoles) {
  const struct {
    const char* label;
    int framesPerSecond;
    std::string keep;
    double apart;
    /// Seconds of sound that are stored together; 0 where it is stored with each picture.
    double chunk = 0;
  } rows[] = {{"slower", 24, "", 0.05},
              {"half", 15, "", 0.1},
              {"half, in chunks", 15, "", 0.1, 0.5},
              {"twice", 60, "", 0.05},
              {"eight times", 240, "", 0.05},
              {"some dropped", 30, "gt(random(2),0.2)", 0.15},
              {"many dropped", 30, "gt(random(2),0.4)", 0.25},
              {"half of them in the dark", 30, "not(between(t,3,9)*mod(n,2))", 0.15}};
  const ClipRecipe usual{.seconds = 12, .sound = testing::livelySound(1, 48000)};
  const testing::TemporaryFolder folder;
  const auto stored = [&](const ClipRecipe& recipe, double chunk) {
    if (chunk == 0) return makeClip(recipe);
    auto clip = folder / (std::to_string(recipe.variant) + ".mp4");
    testing::storeInChunks(makeClip(recipe), chunk, clip);
    return clip;
  };
  for (const auto& row : rows) {
    ClipRecipe recipe = usual;
    recipe.framesPerSecond = row.framesPerSecond;
    recipe.keep = row.keep;
    ClipRecipe reference = usual;
    reference.variant = 1;
    Victim victim(stored(recipe, row.chunk));
    const SampleList& pictures = victim.truth().videoTrack()->samples;
    for (const std::uint64_t part : {1U, 4U, 7U}) {
      const std::uint64_t at = pictures[pictures.size() * part / 9].offset + 8;
      victim.blank(at, at + 4096);
    }
    const Comparison c = rebuildAndCompare(victim, stored(reference, row.chunk));
    EXPECT_LT(c.apart, row.apart) << row.label;
    EXPECT_EQ(c.blocksInvented, 0U) << row.label;
    EXPECT_GE(c.blocksExact + 2, c.blocks) << row.label;
  }
}

// Each of many short stretches tells little, all of them enough.
TEST_F(FrameRate, isToldBetweenManyHoles) {
  const struct {
    int ofClip;
    int ofReference;
    double apart;
    /// As above.
    double chunk = 0;
  } rows[] = {{60, 30, 0.15}, {50, 30, 0.15}, {30, 24, 0.15}, {60, 30, 0.6, 0.5}};
  const testing::TemporaryFolder folder;
  for (const auto& row : rows) {
    ClipRecipe recipe{.container = "mov",
                      .audio = "pcm_s16le",
                      .bFrames = 2,
                      .seconds = 10,
                      .framesPerSecond = row.ofClip,
                      .sound = testing::livelySound(2, 48000),
                      .channels = 2};
    std::filesystem::path clip = makeClip(recipe);
    recipe.framesPerSecond = row.ofReference;
    recipe.variant = 1;
    std::filesystem::path reference = makeClip(recipe);
    if (row.chunk > 0) {
      testing::storeInChunks(clip, row.chunk, folder / "clip");
      testing::storeInChunks(reference, row.chunk, folder / "reference");
      clip = folder / "clip";
      reference = folder / "reference";
    }
    for (unsigned seed = 1; seed <= 4; ++seed) {
      SCOPED_TRACE(std::to_string(row.ofClip) + " by " + std::to_string(row.ofReference) +
                   (row.chunk > 0 ? " in chunks " : " ") + std::to_string(seed));
      Victim victim(clip);
      victim.punch(seed, 20, 4096, testing::Filling::noise);
      const Comparison c = rebuildAndCompare(victim, reference);
      EXPECT_FALSE(c.result.audioDropped);
      EXPECT_LT(c.apart, row.apart);
    }
  }
}

// Drones record none.
TEST_F(FrameRate, isTheStatedOneWhereThereIsNoSound) {
  const struct {
    const char* label;
    const char* codec;
    int ofClip;
    int ofReference;
    const char* settings;
    const char* ofReferences;
    bool isAdopted;
  } rows[] = {{"twice", "libx264", 60, 30, "", "", true},
              {"film", "libx265", 24, 60, "", "", true},
              {"scaling lists", "libx265", 60, 25,
               ":scaling-list=default:hrd=1:vbv-bufsize=900:vbv-maxrate=900", "", true},
              {"the same", "libx265", 30, 30, "", "", true},
              {"a reference shown slowly", "libx264", 60, 30, "", ":fps=120:force-cfr=1", false},
              {"a rate that no camera has", "libx264", 30, 30, ":fps=21:force-cfr=1", "", true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const std::string repeated = ":repeat-headers=1";
    const ClipRecipe clip{.codec = row.codec,
                          .audio = "",
                          .bFrames = 2,
                          .seconds = 4,
                          .framesPerSecond = row.ofClip,
                          .settings = repeated + row.settings};
    ClipRecipe reference = clip;
    reference.framesPerSecond = row.ofReference;
    reference.settings = repeated + row.ofReferences;
    reference.variant = 1;
    const Comparison c = rebuildAndCompare(Victim(makeClip(clip)), makeClip(reference));
    EXPECT_EQ(c.exact, c.frames);
    EXPECT_EQ(c.inOrder, c.shared);
    EXPECT_EQ(std::abs(c.worstTime) < 0.05, row.isAdopted) << c.worstTime;
  }
}

// A camera that drops two pictures of five has two thirds more sound to each than its reference.
TEST_F(FrameRate, leavesSoundThatIsMoreThanPicturesAskFor) {
  const ClipRecipe usual{.seconds = 12, .sound = testing::livelySound(1, 48000)};
  ClipRecipe recipe = usual;
  recipe.keep = "gt(random(2),0.45)";
  ClipRecipe reference = usual;
  reference.variant = 1;
  const Comparison c = rebuildAndCompare(Victim(makeClip(recipe)), makeClip(reference));
  EXPECT_FALSE(c.result.audioDropped);
  EXPECT_EQ(c.blocksExact, c.blocks);
  EXPECT_LT(c.apart, 0.15);
  // Another track's is as much more.
  recipe.soundTracks = 2;
  const Comparison two = rebuildAndCompare(Victim(makeClip(recipe)), makeClip(reference));
  EXPECT_TRUE(two.result.audioDropped);
}

// Half or twice the bytes can be other channels or another track: pictures last as long as the
// reference's then.
TEST_F(FrameRate, isNotToldByOtherSound) {
  const ClipRecipe mono{.container = "mov", .audio = "pcm_s16le", .seconds = 6};
  ClipRecipe stereo = mono;
  stereo.channels = 2;
  stereo.sound = testing::livelySound(2, 48000);
  ClipRecipe alike = stereo;
  alike.sound =
      "aevalsrc='0.3*sin(440*2*PI*t)+0.05*random(0)|0.3*sin(440*2*PI*t)+0.04*random(0)+0.01*random("
      "1)"
      "':sample_rate=48000";
  const ClipRecipe one{.seconds = 6, .sound = testing::livelySound(2, 48000), .channels = 2};
  ClipRecipe two = one;
  two.soundTracks = 2;
  ClipRecipe clocked = stereo;
  clocked.settings = ":repeat-headers=1";
  ClipRecipe clockedMono = mono;
  clockedMono.settings = clocked.settings;
  const struct {
    const char* label;
    ClipRecipe clip;
    ClipRecipe reference;
  } rows[] = {{"more channels at the same stated rate", clocked, clockedMono},
              {"more channels", stereo, mono},
              {"fewer channels", mono, stereo},
              {"more channels, nearly alike", alike, mono},
              {"fewer channels than two that are nearly alike", mono, alike},
              {"another track", two, one}};
  for (const auto& row : rows) {
    const Comparison c = rebuildAndCompare(Victim(makeClip(row.clip)), makeClip(row.reference));
    EXPECT_EQ(c.exact, c.frames) << row.label;
    EXPECT_LT(std::abs(c.worstTime), 0.05) << row.label;
  }
}

}  // namespace
}  // namespace tallowmark
