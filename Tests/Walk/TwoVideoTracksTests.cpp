// SPDX-License-Identifier: GPL-3.0-or-later
// Two video tracks in one clip, as phones with two lenses write them.
#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tests/Support/Chunks.h"
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

/// A clip of two lenses, say, whose frames take turns and count alike.
struct TwoTracks {
  const char* codec;
  /// Of the second track; the first has 25 pictures a second, 320 × 240.
  const char* size;
  int framesPerSecond;
  /// ffmpeg's name of the audio encoder; empty for none.
  const char* audio;
  /// The lenses look the other way round.
  bool isTurned = false;
  /// So many between two others, as a camera's encoder has it; the encoder's choice otherwise.
  std::optional<int> bFrames;
  int soundVariant = 0;

  std::string label() const {
    return std::string(codec) + ' ' + size + ' ' + std::to_string(framesPerSecond) + ' ' + audio;
  }
};

std::filesystem::path makeClip(const TwoTracks& tracks, const std::filesystem::path& clip) {
  const std::string quiet = "testsrc2=size=";
  const std::string lively = "mandelbrot=size=";
  const std::string first = (tracks.isTurned ? lively : quiet) + "320x240:rate=25";
  const std::string second = (tracks.isTurned ? quiet : lively) + tracks.size +
                             ":rate=" + std::to_string(tracks.framesPerSecond);
  std::vector<std::string> command{"ffmpeg", "-v",  "error", "-y",    "-f", "lavfi",
                                   "-i",     first, "-f",    "lavfi", "-i", second};
  if (*tracks.audio != '\0') {
    command.insert(command.end(),
                   {"-f", "lavfi", "-i", testing::livelySound(1, 48000, tracks.soundVariant),
                    "-map", "2", "-c:a", tracks.audio});
  }
  command.insert(command.end(), {"-map", "0", "-map", "1", "-t", "4", "-c:v", tracks.codec, "-g",
                                 "50", "-pix_fmt", "yuv420p"});
  if (tracks.bFrames) {
    command.insert(command.end(), {"-bf", std::to_string(*tracks.bFrames), "-b_strategy", "0",
                                   "-sc_threshold", "0", "-x265-params", "scenecut=0:b-adapt=0"});
  }
  command.push_back(clip.string());
  if (const auto made = testing::run(command); made.exitCode != 0) {
    throw std::runtime_error("ffmpeg: " + made.errors);
  }
  return clip;
}

/// Over several rebuilds, each with other holes.
Comparison withHoles(const std::filesystem::path& clip, const std::filesystem::path& reference) {
  Comparison sum;
  for (unsigned seed = 0; seed < 8; ++seed) {
    Victim victim(clip);
    victim.punch(seed, 1 + seed % 4, 2000 + 1000 * seed, Filling::noise);
    const Comparison c = rebuildAndCompare(victim, reference);
    sum.frames += c.frames - c.beforeKeyframe;
    sum.exact += c.exact;
    sum.invented += c.invented;
  }
  return sum;
}

// The sizes of pictures say the opposite then; numbers tell whose they are.
TEST(TwoVideoTracks, areToldApartByAReferenceOfOtherViews) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  for (TwoTracks tracks : {TwoTracks{"libx264", "320x240", 25, "", false, 3},
                           TwoTracks{"libx264", "320x240", 25, "aac", false, 0},
                           TwoTracks{"libx264", "320x240", 50, ""},
                           TwoTracks{"libx265", "320x240", 25, "pcm_s16le", false, 0}}) {
    SCOPED_TRACE(tracks.label());
    const auto clip = makeClip(tracks, folder / "clip.mov");
    tracks.isTurned = true;
    const auto reference = makeClip(tracks, folder / "reference.mov");
    const Comparison sum = withHoles(clip, reference);
    EXPECT_GE(sum.exact * 100, sum.frames * 99) << sum.exact << " of " << sum.frames;
    EXPECT_LE(sum.invented * 100, sum.frames) << sum.invented;
  }
}

TEST(TwoVideoTracks, thatTakeTurnsAreToldApart) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  for (const TwoTracks& tracks :
       {TwoTracks{"libx264", "320x240", 25, ""}, TwoTracks{"libx264", "160x120", 25, "aac"},
        TwoTracks{"libx264", "160x120", 25, "pcm_s16le"}, TwoTracks{"libx264", "160x120", 50, ""},
        TwoTracks{"libx265", "320x240", 25, ""}, TwoTracks{"libx265", "160x120", 25, "aac"},
        TwoTracks{"libx265", "160x120", 50, "pcm_s16le"}}) {
    SCOPED_TRACE(tracks.label());
    const auto clip = makeClip(tracks, folder / "two.mov");
    const Comparison whole = rebuildAndCompare(Victim(clip), clip);
    EXPECT_EQ(whole.exact, whole.frames);
    EXPECT_EQ(whole.invented, 0U);
    EXPECT_EQ(whole.soundRight, whole.sound);
    EXPECT_LE(whole.worstStep, 1);
    const Comparison sum = withHoles(clip, clip);
    EXPECT_GE(sum.exact * 1000, sum.frames * 995) << sum.exact << " of " << sum.frames;
    EXPECT_LE(sum.invented * 1000, sum.frames * 5);
  }
}

// Chunks of half a second of each lens, and of sound behind the second one's: sound takes other
// bytes in each clip, and the sizes of pictures say the opposite in one that looks the other way
// round.
TEST(TwoVideoTracks, inChunksKeepTheirTime) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  TwoTracks tracks{"libx264", "320x240", 25, "aac"};
  const auto inChunks = [&](const char* name) {
    testing::storeInChunks(makeClip(tracks, folder / "turns.mov"), 0.48, folder / name);
    return folder / name;
  };
  const auto clip = inChunks("clip.mov");
  tracks.isTurned = true;
  tracks.soundVariant = 3;
  for (const auto& reference : {clip, inChunks("other.mov")}) {
    const Comparison c = rebuildAndCompare(Victim(clip), reference);
    EXPECT_EQ(c.exact, c.frames) << reference;
    EXPECT_EQ(c.invented, 0U) << reference;
    EXPECT_EQ(c.blocksExact, c.blocks) << reference;
    EXPECT_LT(std::abs(c.worstTime), 0.05) << reference;
    EXPECT_EQ(c.result.soundBlocksLost, 0U) << reference;
  }
}

}  // namespace
}  // namespace tallowmark
