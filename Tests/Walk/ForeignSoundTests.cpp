// SPDX-License-Identifier: GPL-3.0-or-later
// Clips whose reference has PCM sound, and which have another kind or none.
#include <gtest/gtest.h>

#include <cmath>

#include "Tests/Support/Clips.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::ClipRecipe;
using testing::Comparison;
using testing::Filling;
using testing::livelySound;
using testing::makeClip;
using testing::Victim;

class ForeignSound : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
  }
};

// The pictures come back as if the reference had no sound, and the copy says that there is none.
TEST_F(ForeignSound, isNeverTakenForPCM) {
  const ClipRecipe mono{.container = "mov", .audio = "pcm_s16le", .bFrames = 2, .seconds = 4};
  ClipRecipe stereo = mono;
  stereo.channels = 2;
  stereo.sound = livelySound(2, 48000);
  ClipRecipe wide = stereo;
  wide.audio = "pcm_s24be";
  ClipRecipe narrow = stereo;
  narrow.audio = "pcm_s8";
  ClipRecipe two = mono;
  two.soundTracks = 2;
  ClipRecipe four = wide;
  four.channels = 1;
  four.sound = livelySound(1, 48000);
  four.soundTracks = 4;
  const struct {
    const char* label;
    ClipRecipe reference;
  } rows[] = {{"mono", mono},     {"stereo", stereo},  {"24 bits", wide},
              {"8 bits", narrow}, {"two tracks", two}, {"four tracks", four}};
  ClipRecipe clip{.bFrames = 2, .seconds = 3, .sound = livelySound(2, 48000), .channels = 2};
  clip.variant = 1;
  ClipRecipe surround = clip;
  surround.channels = 6;
  surround.sound = livelySound(6, 48000);
  const testing::Bytes other = testing::contentsOf(makeClip(mono));
  for (const auto& [label, reference] : rows) {
    SCOPED_TRACE(label);
    unsigned holes = 0;
    for (const ClipRecipe& recipe : {clip, surround, clip}) {
      Victim victim(makeClip(recipe));
      victim.punch(holes, holes, 4096, Filling::otherFile, other);
      const Comparison c = rebuildAndCompare(victim, makeClip(reference));
      EXPECT_EQ(c.exact + c.beforeKeyframe, c.frames);
      EXPECT_EQ(c.invented, 0U);
      EXPECT_EQ(c.inOrder, c.shared);
      EXPECT_EQ(c.result.audioPackets, 0U);
      EXPECT_TRUE(c.result.audioDropped);
      ++holes;
    }
  }
}

// Sound of as few bytes, for pictures at a higher rate, stays when it is PCM: stillness, too, and
// noise that the reference does not have.
TEST_F(ForeignSound, isNoPCM) {
  const ClipRecipe slow{
      .container = "mov", .audio = "pcm_s16le", .seconds = 6, .framesPerSecond = 24, .channels = 2};
  const struct {
    const char* label;
    const char* sound;
  } rows[] = {{"lively", nullptr},
              {"still", "anullsrc=channel_layout=stereo:sample_rate=48000"},
              {"noise", "anoisesrc=sample_rate=48000:amplitude=0.9"}};
  for (const auto& [label, sound] : rows) {
    SCOPED_TRACE(label);
    ClipRecipe fast = slow;
    fast.framesPerSecond = 60;
    fast.sound = sound != nullptr ? sound : livelySound(2, 48000);
    const Comparison c = rebuildAndCompare(Victim(makeClip(fast)), makeClip(slow));
    EXPECT_EQ(c.exact, c.frames);
    EXPECT_FALSE(c.result.audioDropped);
    EXPECT_GE(c.soundRight + 1024, c.sound);
    EXPECT_LT(std::abs(c.worstTime), 0.05);
  }
}

// Where a clip with AAC was written over parts of one with PCM, what is left of that is kept.
TEST_F(ForeignSound, isLeftAloneBesidePCM) {
  const ClipRecipe pcm{
      .container = "mov", .audio = "pcm_s16le", .seconds = 6, .sound = livelySound(1, 48000)};
  ClipRecipe reference = pcm;
  reference.variant = 1;
  const ClipRecipe other{.seconds = 3, .sound = livelySound(2, 48000), .channels = 2};
  const testing::Bytes filling = testing::contentsOf(makeClip(other));
  for (unsigned seed = 0; seed < 4; ++seed) {
    Victim victim(makeClip(pcm));
    victim.punch(seed, 6, 60'000, Filling::otherFile, filling);
    const Comparison c = rebuildAndCompare(victim, makeClip(reference));
    EXPECT_GT(c.result.audioPackets, 0U) << seed;
    EXPECT_GT(c.soundRight * 2, c.sound) << seed;
  }
}

// Delimiters that the reference does not have hide the pictures, and with them that there is no
// PCM.
TEST_F(ForeignSound, isNotTakenForPCMWhosePicturesAreFramedInAnotherWay) {
  const ClipRecipe clip{.seconds = 5,
                        .settings = ":aud=1",
                        .sound = livelySound(2, 48000),
                        .channels = 2,
                        .variant = 1};
  const ClipRecipe reference{.container = "mov", .audio = "pcm_s16le", .seconds = 4};
  const Comparison compared =
      testing::rebuildAndCompare(Victim(makeClip(clip)), makeClip(reference));
  EXPECT_EQ(compared.exact, compared.frames);
  EXPECT_EQ(compared.result.audioPackets, 0U);
  EXPECT_TRUE(compared.result.audioDropped);
}

}  // namespace
}  // namespace tallowmark
