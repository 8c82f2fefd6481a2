// SPDX-License-Identifier: GPL-3.0-or-later
// Clips rebuilt with a reference of the same encoder and other settings: what their slice headers
// ask of the parameter sets.
#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::ClipRecipe;
using testing::Comparison;
using testing::Filling;
using testing::makeClip;
using testing::Victim;

namespace fs = std::filesystem;

VideoRepair::Plan planOf(const fs::path& clip, const fs::path& reference) {
  const Victim victim(clip);
  return VideoRepair::planRebuild(MemorySource(victim.bytes()), FileSource(reference.string()));
}

// All decoded pictures, as one sum.
std::string picturesOf(const fs::path& clip) {
  const auto decoded = testing::run(
      {"ffmpeg", "-v", "error", "-i", clip.string(), "-map", "0:v", "-f", "hash", "-"});
  return decoded.output + (decoded.errors.empty() ? "" : "with complaints");
}

std::string picturesRebuilt(const fs::path& clip, const fs::path& reference) {
  const Victim victim(clip);
  const testing::TemporaryFolder folder;
  FileSink sink((folder / "copy.mp4").string());
  VideoRepair::rebuild(MemorySource(victim.bytes()), FileSource(reference.string()), sink);
  return picturesOf(folder / "copy.mp4");
}

struct Settings {
  const char* label;
  ClipRecipe one;
  ClipRecipe other;
};

std::vector<Settings> otherSettings() {
  const auto recipe = [](int bFrames, std::string settings, int keyInterval = 25) {
    return ClipRecipe{.bFrames = bFrames,
                      .seconds = 5,
                      .keyInterval = keyInterval,
                      .settings = std::move(settings)};
  };
  ClipRecipe slices = recipe(0, "");
  slices.slices = 4;
  ClipRecipe slicesB = recipe(2, "");
  slicesB.slices = 4;
  const std::string unweighted = ":weightp=0:weightb=0";
  ClipRecipe two = recipe(0, ":ref=2:weightp=0", 12);
  two.slices = 3;
  ClipRecipe three = recipe(0, ":ref=3:weightp=0", 30);
  three.slices = 3;
  return {{"references", recipe(0, ":ref=1"), recipe(0, ":ref=6")},
          {"references and weights", recipe(2, ":ref=2:weightp=2", 12), recipe(0, ":ref=5")},
          {"references, variable length codes", recipe(0, ":ref=2:cabac=0"),
           recipe(3, ":ref=4:cabac=0")},
          {"references and B pictures", recipe(0, ":ref=1" + unweighted),
           recipe(2, ":ref=3" + unweighted)},
          {"frames alone", two, three},
          {"B pictures", recipe(0, ""), recipe(3, "")},
          {"variable length codes", recipe(0, ":cabac=0"), recipe(2, ":cabac=0")},
          {"no weights", recipe(0, ":weightp=0"), recipe(2, ":weightp=0:weightb=0")},
          {"four slices", slices, slicesB},
          {"one reference", recipe(0, ":ref=1"), recipe(2, ":ref=1:b-pyramid=none:b-adapt=0")},
          {"no reference", recipe(0, ":ref=1", 1), recipe(2, ":ref=1:b-adapt=0")},
          {"weights of P alone", recipe(0, ""), recipe(3, ":weightb=0:b-adapt=0")},
          {"weights of B alone", recipe(0, ":weightp=0"), recipe(3, ":weightp=0:b-adapt=0")},
          {"many references", recipe(0, ":ref=8", 60), recipe(5, ":ref=8", 60)}};
}

TEST(ParameterFitting, showsClipsOfOtherSettingsAsTheyWere) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const Settings& settings : otherSettings()) {
    const fs::path one = makeClip(settings.one);
    const fs::path other = makeClip(settings.other);
    for (const auto& [clip, reference] : {std::pair(one, other), {other, one}}) {
      SCOPED_TRACE(std::string(settings.label) + (clip == one ? ", forth" : ", back"));
      EXPECT_TRUE(planOf(clip, reference).hasOtherSettings);
      EXPECT_EQ(picturesRebuilt(clip, reference), picturesOf(clip));
    }
  }
}

// Too few pictures to show several times how far they are held back.
TEST(ParameterFitting, showsEveryPictureOfAShortClip) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  ClipRecipe recipe{.seconds = 2};
  const fs::path plain = makeClip(recipe);
  recipe.bFrames = 3;
  recipe.seconds = 0.4;
  const fs::path clip = makeClip(recipe);
  EXPECT_EQ(picturesRebuilt(clip, plain), picturesOf(clip));
}

// A clip of many gigabytes that is walked once more must not look as if it hung.
TEST(ParameterFitting, movesTheProgressInEveryWalk) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const Victim victim(makeClip({.bFrames = 3}));
  const MemorySource source(victim.bytes());
  const FileSource reference(makeClip({}).string());
  std::vector<double> told;
  const Progress progress = [&](double fraction) { told.push_back(fraction); };
  const VideoRepair::Plan plan = VideoRepair::plan(source, &reference, progress);
  EXPECT_GT(plan.progressDone, 0.5);
  EXPECT_DOUBLE_EQ(told.back(), plan.progressDone);
  const testing::TemporaryFolder folder;
  FileSink sink((folder / "copy.mp4").string());
  VideoRepair::write(plan, source, sink, VideoRepair::writingProgress(plan, progress));
  EXPECT_DOUBLE_EQ(told.back(), 1);
  EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
}

TEST(ParameterFitting, leavesSetsAloneThatFit) {
  std::vector<fs::path> clips;
  for (const char* name :
       {"gopro_hero7_h264.mp4", "gopro_hero10_GL012297.LRV", "iphone6_h264_gps.mov",
        "android_4k60_h264.mp4", "phone_3gp5_720p_h264.mp4", "twos_pcm_h264_synth.mov"}) {
    if (const auto clip = testing::corpusFile(fs::path("video") / name)) clips.push_back(*clip);
  }
  if (testing::canMakeClips()) {
    for (const Settings& settings : otherSettings()) {
      clips.push_back(makeClip(settings.one));
      clips.push_back(makeClip(settings.other));
    }
  }
  if (clips.empty()) {
    GTEST_SKIP() << "neither ffmpeg nor camera files are here";
  }
  for (const fs::path& clip : clips) EXPECT_FALSE(planOf(clip, clip).hasOtherSettings) << clip;
}

// The first walk finds what it can; by the sets that fit these, the second finds the rest.
TEST(ParameterFitting, findsFramesAndTheirOrderBehindHoles) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  for (const char* codec : {"libx264", "libx265"}) {
    ClipRecipe recipe{.codec = codec, .seconds = 6, .sound = testing::livelySound(1, 48000)};
    const fs::path plain = makeClip(recipe);
    recipe.bFrames = 3;
    const fs::path clip = makeClip(recipe);
    Comparison sum;
    for (unsigned i = 0; i < 12; ++i) {
      Victim victim(clip);
      victim.punch(i, 1 + i % 6, 4000 + 2000 * i, i % 2 == 0 ? Filling::noise : Filling::zeros);
      const Comparison c = rebuildAndCompare(victim, plain);
      sum.frames += c.frames - c.beforeKeyframe;
      sum.exact += c.exact;
      sum.invented += c.invented;
      sum.shared += c.shared;
      sum.inOrder += c.inOrder;
    }
    EXPECT_GE(sum.exact * 1000, sum.frames * 995) << codec << ' ' << sum.exact << '/' << sum.frames;
    EXPECT_EQ(sum.invented, 0U) << codec;
    EXPECT_GE(sum.inOrder * 100, sum.shared * 98) << codec << ' ' << sum.inOrder;
  }
}

}  // namespace
}  // namespace tallowmark
