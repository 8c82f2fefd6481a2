// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/FrameFinder.h"

#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Chunks.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

// Searching refuses most positions by a few bytes, sixteen positions at a time; it must not refuse
// one at which a frame is found by looking.
TEST(FrameFinder, searchingFindsWhatLookingEverywhereFinds) {
  const testing::ClipRecipe recipes[] = {
      {.codec = "libx264", .container = "mov", .audio = "pcm_s16le", .bFrames = 2},
      {.codec = "libx265", .container = "mov", .audio = "pcm_s16le", .bFrames = 2}};
  for (const auto& recipe : recipes) {
    SCOPED_TRACE(recipe.codec);
    const FileSource clip(testing::makeClip(recipe).string());
    const Movie movie = MovieParser::parse(BoxReader(clip));
    const Track& video = *movie.videoTrack();
    const auto evidence =
        StreamEvidence::learn(video, clip, *NALFormat::of(video.sampleEntry, video.codec));
    ASSERT_TRUE(evidence);
    constexpr std::uint64_t maxFrameSize = std::uint64_t{4} << 20U;
    FrameFinder looking(clip, clip.size(), *evidence, maxFrameSize);
    FrameFinder searching(clip, clip.size(), *evidence, maxFrameSize);
    std::uint64_t at = 0;
    std::size_t found = 0;
    for (auto frame = searching.search(0, clip.size()); frame;
         frame = searching.search(at, clip.size()), ++found) {
      for (; at < frame->offset; ++at) {
        ASSERT_FALSE(looking.frameAt(at, FrameFinder::Trust::learntOnly)) << "missed at " << at;
      }
      ASSERT_TRUE(looking.frameAt(at, FrameFinder::Trust::learntOnly)) << "invented at " << at;
      ++at;
    }
    for (; at < clip.size(); ++at) {
      ASSERT_FALSE(looking.frameAt(at, FrameFinder::Trust::learntOnly)) << "missed at " << at;
    }
    EXPECT_GE(found, video.samples.size());
  }
}

// Behind a long hole a picture speaks for itself by what follows it. Sound of a constant rate may
// end with zeros, ahead of which the next one seems to begin.
TEST(FrameFinder, aPictureBetweenAHoleAndSoundIsFound) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const auto clip = folder / "clip.mp4";
  const auto made = testing::run(
      {"ffmpeg",
       "-v",
       "error",
       "-f",
       "lavfi",
       "-i",
       "testsrc2=size=640x360:rate=25:duration=6,noise=alls=8:allf=t",
       "-f",
       "lavfi",
       "-i",
       "aevalsrc='0.25*sin(2*PI*330*t)|0.25*sin(2*PI*330*t)':sample_rate=48000:duration=6",
       "-c:a",
       "aac",
       "-b:a",
       "256k",
       "-c:v",
       "libx264",
       "-preset",
       "ultrafast",
       "-b:v",
       "20M",
       "-pix_fmt",
       "yuv420p",
       "-x264-params",
       "keyint=12:bframes=2:scenecut=0",
       clip.string()});
  ASSERT_EQ(made.exitCode, 0) << made.errors;
  std::uint64_t frames = 0;
  std::uint64_t exact = 0;
  for (unsigned seed = 0; seed < 12; ++seed) {
    testing::Victim victim(clip);
    victim.punch(seed, 5, 65536, testing::Filling::zeros);
    const auto c = testing::rebuildAndCompare(victim, clip);
    EXPECT_EQ(c.invented, 0U) << seed;
    frames += c.frames;
    exact += c.exact + c.beforeKeyframe;
  }
  EXPECT_GE(exact * 1000, frames * 995);
}

// Nothing of its kind follows: the end of the media does, or the sound of all the recording.
TEST(FrameFinder, theLastPictureIsFoundBehindAHole) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  for (const char* codec : {"libx264", "libx265"}) {
    for (const char* audio : {"aac", ""}) {
      SCOPED_TRACE(std::string(codec) + ' ' + audio);
      const testing::ClipRecipe recipe{
          .codec = codec, .audio = audio, .bFrames = 2, .seconds = 3, .grain = 20};
      auto clip = testing::makeClip(recipe);
      if (*audio != 0) {
        testing::storeInChunks(clip, 10, folder / "clip.mp4");
        clip = folder / "clip.mp4";
      }
      testing::Victim victim(clip);
      const SampleList& pictures = victim.truth().videoTrack()->samples;
      const std::uint64_t last = pictures.size() - 1;
      victim.blank(pictures[last / 3].offset, pictures[last].offset);
      const auto c = testing::rebuildAndCompare(victim, clip);
      EXPECT_EQ(c.exact, c.frames);
      EXPECT_EQ(c.invented, 0U);
    }
  }
}

}  // namespace
}  // namespace tallowmark
