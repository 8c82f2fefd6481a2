// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <sstream>

#include "Chapters.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Join/ClipJoin.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"

namespace tallowmark::ClipJoin {
namespace {

using namespace tallowmark::testing;
namespace fs = std::filesystem;

double probed(const fs::path& file, const char* stream, const char* entry) {
  const auto told = run({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries",
                         std::string("stream=") + entry, "-of", "csv=p=0", file.string()});
  double value = -1;
  std::istringstream(told.output) >> value;
  return value;
}

TEST(SeamPreview, startsAtTheLastKeyFrameAheadOfTheSeam) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  struct Row {
    ClipRecipe recipe;
    double before;
    double after;
    std::int64_t frames;
  };
  // Key frames stand at 0, 2, 4 and 6 s; the parts last 7 s.
  const ClipRecipe usual{.bFrames = 2, .seconds = 7, .keyInterval = 50};
  const ClipRecipe pcm{.container = "mov", .audio = "pcm_s16le", .seconds = 7, .keyInterval = 50};
  for (const Row& row :
       {Row{usual, 5, 5, 125 + 125}, Row{usual, 4.9, 1.01, 125 + 26}, Row{usual, 3, 1, 75 + 25},
        Row{usual, 0, 0.001, 25 + 1}, Row{usual, 100, 100, 350}, Row{pcm, 3, 3, 75 + 75}}) {
    const std::vector<Part> parts = readParts({makeClip(row.recipe), makeClip(row.recipe)});
    const fs::path seam = folder / "seam.mp4";
    {
      FileSink sink(seam.string());
      writeSeam(parts, row.before, row.after, sink);
    }
    EXPECT_EQ(probed(seam, "v", "nb_frames"), row.frames);
    EXPECT_NEAR(probed(seam, "a", "start_time"), probed(seam, "v", "start_time"), 0.04);
    EXPECT_NEAR(probed(seam, "a", "duration"), static_cast<double>(row.frames) / 25, 0.1);
    EXPECT_EQ(decodingComplaints(seam), "");
  }
}

TEST(SeamPreview, carriesTelemetryInTime) {
  const auto clip = corpusFile("video/gopro_hero7_h264.mp4");
  if (!clip) GTEST_SKIP() << "no real camera files beside the source tree";
  const TemporaryFolder folder;
  const std::vector<Part> parts = readParts(cutIntoChapters(*clip, folder.path(), 2));
  const fs::path seam = folder / "seam.mp4";
  {
    FileSink sink(seam.string());
    writeSeam(parts, 2, 2, sink);
  }
  EXPECT_EQ(decodingComplaints(seam), "");
  const Movie movie = parsed(seam);
  ASSERT_EQ(movie.tracks.size(), 5U);
  EXPECT_LT(movie.seconds(), 4.6);
  EXPECT_NEAR(probed(seam, "a", "start_time"), 0, 1001.0 / 30000);
}

TEST(SeamPreview, needsAKeyFrameBehindTheSeam) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  std::vector<Part> parts = readParts({makeClip({}), makeClip({})});
  Track& video = parts[1].movie.tracks[0];
  video.samples = video.samples.slice(1, video.samples.size());
  FileSink sink((folder / "seam.mp4").string());
  try {
    writeSeam(parts, 5, 5, sink);
    FAIL() << "not refused";
  } catch (const MediaError& error) {
    EXPECT_EQ(error.kind(), MediaError::Kind::malformed);
    EXPECT_EQ(error.detail(), "the second part doesn't start on a keyframe");
  }
  EXPECT_EQ(sink.size(), 0U);
  EXPECT_NO_THROW(join(parts, sink));
}

}  // namespace
}  // namespace tallowmark::ClipJoin
