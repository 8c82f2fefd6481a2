// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/PictureTrial.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "DecoderKit/FFmpegDecoder.h"
#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Clusters.h"
#include "Tests/Support/Files.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {
namespace {

// The clip without index, and noise in it at these of its sixteenths.
Bytes damaged(const std::filesystem::path& clip, std::initializer_list<std::size_t> sixteenths) {
  Bytes bytes = withoutIndex(contentsOf(clip));
  const Bytes noise = foreignCluster(4000);
  for (const std::size_t place : sixteenths) {
    std::copy(noise.begin(), noise.end(), bytes.begin() + placeOf(bytes.size() * place / 16));
  }
  return bytes;
}

// Each decoding is a child process: a person waits for it.
TEST(PictureTrial, settlesASmallClipByFewDecodings) {
  if (!canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const TemporaryFolder folder;
  const ClipRecipe many{.codec = "libx265", .bFrames = 3, .seconds = 4, .keyInterval = 30};
  const ClipRecipe large{.seconds = 0.7, .width = 640, .height = 480, .settings = ":crf=8"};
  const struct {
    ClipRecipe recipe;
    Bytes clip;
    unsigned most;
  } rows[] = {{many, damaged(makeClip(many), {}), 6},
              {large, damaged(makeClip(large), {9, 12}), 6},
              {large, damaged(makeClip(large), {}), 2}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.recipe.codec);
    const MemorySource source(row.clip);
    ClipRecipe other = row.recipe;
    other.variant = 1;
    const FileSource reference(makeClip(other).string());
    const auto plan = VideoRepair::planRebuild(source, reference);
    unsigned decodings = 0;
    const auto counted = [&](std::span<const std::filesystem::path> files, const StopToken& stop) {
      ++decodings;
      return decodePictures(files, stop);
    };
    EXPECT_NO_THROW(requireDecodable(plan, source, &reference, folder.path(), counted, {}));
    EXPECT_GE(decodings, 2U);
    EXPECT_LE(decodings, row.most);
  }
}

// With the one IDR picture damaged, those left to begin with have pictures ahead of them that
// others refer to: no run of pictures decodes by itself.
TEST(PictureTrial, acceptsOpenSequencesWhoseFirstPictureIsDamaged) {
  if (!canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const TemporaryFolder folder;
  const auto clip = folder / "clip.mp4";
  const auto made = run({"ffmpeg",
                         "-v",
                         "error",
                         "-f",
                         "lavfi",
                         "-i",
                         "testsrc2=s=640x360:r=25,noise=alls=12:allf=t",
                         "-t",
                         "4",
                         "-c:v",
                         "libx264",
                         "-preset",
                         "veryfast",
                         "-b:v",
                         "3M",
                         "-g",
                         "12",
                         "-bf",
                         "2",
                         "-x264-params",
                         "open-gop=1:scenecut=0",
                         clip.string()});
  ASSERT_EQ(made.exitCode, 0) << made.errors;
  const FileSource whole(clip.string());
  const Sample first = MovieParser::parse(BoxReader(whole)).videoTrack()->samples[0];
  Bytes bytes = withoutIndex(contentsOf(clip));
  const Bytes noise = foreignCluster(64);
  std::copy(noise.begin(), noise.end(), bytes.begin() + placeOf(first.offset + first.size / 2));
  const MemorySource source(bytes);
  const auto plan = VideoRepair::planRebuild(source, whole);
  EXPECT_EQ(plan.result.videoFrames, 100U);
  EXPECT_NO_THROW(requireDecodable(plan, source, &whole, folder.path(), decodePictures, {}));
}

// Damage to all key pictures is no excuse for P pictures that are read otherwise; the B pictures
// between them are read alike.
TEST(PictureTrial, refusesOtherSettingsWhereKeyPicturesAreDamaged) {
  if (!canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const TemporaryFolder folder;
  const auto weighted = [](const char* weights, int variant) {
    return makeClip({.codec = "libx265",
                     .audio = "",
                     .bFrames = 3,
                     .width = 416,
                     .height = 240,
                     .keyInterval = 60,
                     .settings = std::string(":weightp=") + weights,
                     .variant = variant});
  };
  const FileSource whole(weighted("0", 0).string());
  const Bytes clip = withoutIndex(contentsOf(weighted("0", 0)));
  const Movie movie = MovieParser::parse(BoxReader(whole));
  Bytes torn = clip;
  Bytes wiped = clip;
  for (const Sample picture : movie.videoTrack()->samples) {
    if (!picture.isSync) continue;
    const Bytes noise = foreignCluster(picture.size / 2);
    const auto at = placeOf(picture.offset);
    std::copy(noise.begin(), noise.end(), torn.begin() + at + picture.size / 4);
    std::fill_n(wiped.begin() + at, picture.size, std::uint8_t{0});
  }
  for (const Bytes& damaged : {torn, wiped}) {
    SCOPED_TRACE(damaged == torn ? "torn" : "wiped");
    const MemorySource source(damaged);
    for (const bool isSame : {true, false}) {
      const FileSource reference(weighted(isSame ? "0" : "1", 1).string());
      const auto plan = VideoRepair::planRebuild(source, reference);
      EXPECT_GT(plan.result.videoFrames, 40U);
      const auto require = [&] {
        requireDecodable(plan, source, &reference, folder.path(), decodePictures, {});
      };
      if (isSame) {
        EXPECT_NO_THROW(require());
      } else {
        EXPECT_THROW(require(), MediaError);
      }
    }
  }
}

}  // namespace
}  // namespace tallowmark::testing
