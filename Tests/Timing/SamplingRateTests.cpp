// SPDX-License-Identifier: GPL-3.0-or-later
// Clips whose reference's sound was recorded at another sampling rate.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Chunks.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

namespace fs = std::filesystem;
using testing::ClipRecipe;
using testing::Comparison;
using testing::makeClip;
using testing::Victim;

class SamplingRate : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
  }

  const testing::TemporaryFolder& folder() const { return folder_; }

 private:
  testing::TemporaryFolder folder_;
};

ClipRecipe withSound(const char* audio, int sampleRate, int framesPerSecond) {
  const bool isAAC = std::string(audio) == "aac";
  return {.container = isAAC ? "mp4" : "mov",
          .audio = audio,
          .bFrames = 2,
          .seconds = 8,
          .framesPerSecond = framesPerSecond,
          .sound = testing::livelySound(2, sampleRate),
          .sampleRate = sampleRate,
          .channels = 2};
}

void expectAllInTime(const Comparison& c) {
  EXPECT_EQ(c.exact, c.frames);
  EXPECT_EQ(c.soundRight, c.sound);
  EXPECT_EQ(c.blocksExact, c.blocks);
  EXPECT_LT(std::abs(c.worstTime), 0.05);
  EXPECT_LT(std::abs(c.worstStep), 1.0);
  EXPECT_NEAR(c.result.seconds, 8, 0.1);
}

TEST_F(SamplingRate, isTheOneThatThePicturesAskFor) {
  const struct {
    const char* audio;
    int ofClip;
    int ofReference;
    int framesPerSecond = 30;
    /// Of the reference, where it has others.
    int others = 0;
    double chunk = 0;
  } rows[] = {{"aac", 48000, 44100},           {"aac", 44100, 48000, 25},
              {"aac", 48000, 32000},           {"aac", 48000, 44100, 30, 0, 0.5},
              {"aac", 48000, 44100, 30, 25},   {"pcm_s16le", 48000, 44100},
              {"pcm_s16be", 44100, 48000, 25}, {"pcm_s16le", 44100, 48000, 30, 0, 0.5}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.audio) + ' ' + std::to_string(row.ofClip) + " by " +
                 std::to_string(row.ofReference) + ' ' + std::to_string(row.chunk));
    ClipRecipe recipe = withSound(row.audio, row.ofClip, row.framesPerSecond);
    ClipRecipe other = withSound(row.audio, row.ofReference, row.framesPerSecond);
    other.variant = 1;
    if (row.others > 0) {
      // Both differ: the clip's own clock tells how its pictures do.
      recipe.settings = other.settings = ":repeat-headers=1";
      other.framesPerSecond = row.others;
    }
    fs::path clip = makeClip(recipe);
    fs::path reference = makeClip(other);
    if (row.chunk > 0) {
      testing::storeInChunks(clip, row.chunk, folder() / "clip");
      testing::storeInChunks(reference, row.chunk, folder() / "reference");
      clip = folder() / "clip";
      reference = folder() / "reference";
    }
    expectAllInTime(rebuildAndCompare(Victim(clip), reference));
  }
}

// The copy says so in all places: what it decodes to is what the clip does.
TEST_F(SamplingRate, isWhatTheCopyDecodesAt) {
  for (const char* audio : {"aac", "pcm_s16le"}) {
    const fs::path clip = makeClip(withSound(audio, 48000, 30));
    const FileSource reference(makeClip(withSound(audio, 44100, 30)).string());
    const fs::path copy = folder() / "copy.mov";
    FileSink sink(copy.string());
    (void)VideoRepair::rebuild(MemorySource(Victim(clip).bytes()), reference, sink);
    sink.close();
    const auto told = [](const fs::path& file) {
      return testing::run({"ffprobe", "-v", "error", "-select_streams", "a", "-show_entries",
                           "stream=sample_rate,time_base:packet=duration", "-of", "csv",
                           file.string()})
          .output;
    };
    const auto heard = [](const fs::path& file) {
      return testing::run({"ffmpeg", "-v", "error", "-ignore_editlist", "1", "-i", file.string(),
                           "-map", "0:a", "-f", "hash", "-hash", "md5", "-"})
          .output;
    };
    EXPECT_EQ(told(copy).substr(0, 500), told(clip).substr(0, 500)) << audio;
    EXPECT_EQ(heard(copy), heard(clip)) << audio;
  }
}

// A camera that drops as many pictures as the other rate would make seem missing, other channels
// and larger samples: sound keeps the reference's rate.
TEST_F(SamplingRate, isNotToldByPicturesThatAreMissing) {
  for (const char* audio : {"aac", "pcm_s16le"}) {
    ClipRecipe reference = withSound(audio, 48000, 30);
    reference.variant = 1;
    for (const char* keep : {"gt(random(1),0.075)", "gt(random(3),0.081)"}) {
      ClipRecipe recipe = withSound(audio, 48000, 30);
      recipe.keep = keep;
      const fs::path clip = makeClip(recipe);
      const FileSource teacher(makeClip(reference).string());
      const auto plan = VideoRepair::planRebuild(MemorySource(Victim(clip).bytes()), teacher);
      ASSERT_NE(plan.movie.audioTrack(), nullptr) << audio << keep;
      EXPECT_EQ(plan.movie.audioTrack()->timescale, 48000U) << audio << keep;
    }
  }
  const FileSource reference(makeClip(withSound("pcm_s16le", 48000, 30)).string());
  ClipRecipe mono = withSound("pcm_s16le", 48000, 30);
  mono.channels = 1;
  mono.sound = testing::livelySound(1, 48000);
  for (const ClipRecipe& recipe : {mono, withSound("pcm_s24le", 48000, 30)}) {
    const auto plan =
        VideoRepair::planRebuild(MemorySource(Victim(makeClip(recipe)).bytes()), reference);
    const Track* audio = plan.movie.audioTrack();
    EXPECT_TRUE(audio == nullptr || audio->timescale == 48000U) << recipe.audio;
  }
}

}  // namespace
}  // namespace tallowmark
