// SPDX-License-Identifier: GPL-3.0-or-later
// Clips whose index is whole and whose media has moved: a card lost pieces of the file, or pieces
// of another came in.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>

#include "DeviceKit/FileSink.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Clusters.h"
#include "Tests/Support/Files.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t cluster = 16384;

Bytes overwritten(Bytes file, std::size_t at, const Bytes& with) {
  std::copy(with.begin(), with.end(), file.begin() + placeOf(at));
  return file;
}

Movie movieOf(const Bytes& file) {
  const MemorySource source(file);
  return MovieParser::parse(BoxReader(source));
}

std::multiset<Bytes> picturesOf(const Bytes& file) {
  const MemorySource source(file);
  const Movie movie = movieOf(file);
  std::multiset<Bytes> pictures;
  for (const Sample& sample : movie.videoTrack()->samples) {
    pictures.insert(source.read(sample.offset, sample.size));
  }
  return pictures;
}

double secondsOf(const Track& track) {
  return static_cast<double>(track.samples.duration()) / track.timescale;
}

double soundAheadOf(const Movie& movie) {
  return secondsOf(*movie.audioTrack()) - secondsOf(*movie.videoTrack());
}

bool isInside(const Bytes& part, const Bytes& whole) {
  return std::search(whole.begin(), whole.end(), part.begin(), part.end()) != whole.end();
}

// What stands in the damaged file of the pictures is in the copy, but for one that a torn picture
// may hold, and hardly anything else.
void expectAllThatIsLeft(const Bytes& clip, const Bytes& damaged, const Bytes& copy) {
  const std::multiset<Bytes> all = picturesOf(clip);
  const std::multiset<Bytes> copied = picturesOf(copy);
  std::size_t lost = 0;
  for (const Bytes& picture : all) {
    lost += isInside(picture, damaged) && !copied.contains(picture) ? 1U : 0U;
  }
  std::size_t foreign = 0;
  for (const Bytes& picture : copied) foreign += all.contains(picture) ? 0U : 1U;
  EXPECT_LE(lost, 1U);
  EXPECT_LE(foreign, 2U);
  EXPECT_LT(std::abs(soundAheadOf(movieOf(copy)) - soundAheadOf(movieOf(clip))), 0.1);
}

class IndexFit : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  }

  Bytes repaired(const Bytes& damaged, const ByteSource* reference = nullptr) const {
    const fs::path path = folder_ / "copy";
    fs::remove(path);
    FileSink sink(path.string());
    (void)VideoRepair::repair(MemorySource(damaged), reference, sink);
    sink.close();
    return contentsOf(path);
  }
  Bytes indexFirst(const fs::path& clip) const {
    const fs::path made = folder_ / ("first" + clip.extension().string());
    const auto result = run({"ffmpeg", "-y", "-v", "error", "-i", clip.string(), "-c", "copy",
                             "-movflags", "faststart", made.string()});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    return contentsOf(made);
  }

 private:
  TemporaryFolder folder_;
};

// How far all has moved is known from where the file ends.
TEST_F(IndexFit, fewPicturesAreEnoughToTellByTheEnd) {
  const Bytes clip = indexFirst(makeClip({.seconds = 0.5, .settings = ":crf=10"}));
  const Bytes damaged = withForeignCluster(clip, clip.size() / 4, cluster);
  EXPECT_TRUE(
      std::holds_alternative<VideoRepair::Truncated>(VideoRepair::diagnose(MemorySource(damaged))));
  expectAllThatIsLeft(clip, damaged, repaired(damaged));
}

TEST_F(IndexFit, whatHasMovedIsFoundByWhatTheIndexTeaches) {
  for (const ClipRecipe& recipe :
       {ClipRecipe{.bFrames = 2, .seconds = 6}, ClipRecipe{.codec = "libx265", .seconds = 6},
        ClipRecipe{.container = "mov", .audio = "pcm_s16le", .seconds = 6}}) {
    const fs::path path = makeClip(recipe);
    for (const Bytes& clip : {contentsOf(path), indexFirst(path)}) {
      const std::size_t place = clip.size() * 6 / 10;
      for (const Bytes& damaged :
           {withoutCluster(clip, place, cluster), withForeignCluster(clip, place, cluster)}) {
        SCOPED_TRACE(recipe.codec + " " + recipe.audio + " " + std::to_string(damaged.size()));
        const auto diagnosis = VideoRepair::diagnose(MemorySource(damaged));
        EXPECT_TRUE(std::holds_alternative<VideoRepair::Truncated>(diagnosis));
        expectAllThatIsLeft(clip, damaged, repaired(damaged));
      }
    }
  }
}

// Then another clip has to teach.
TEST_F(IndexFit, anIndexThatFitsNowhereIsNone) {
  ClipRecipe recipe{.seconds = 4};
  const fs::path path = makeClip(recipe);
  recipe.variant = 1;
  const Bytes sibling = contentsOf(makeClip(recipe));
  const Bytes clip = indexFirst(path);
  const Bytes damaged = withForeignCluster(withForeignCluster(clip, clip.size() * 63 / 64, cluster),
                                           clip.size() / 16, cluster);
  EXPECT_TRUE(std::holds_alternative<VideoRepair::MissingIndex>(
      VideoRepair::diagnose(MemorySource(damaged))));
  const MemorySource reference(sibling);
  expectAllThatIsLeft(clip, damaged, repaired(damaged, &reference));
}

// Pictures that are overwritten are damaged where they are.
TEST_F(IndexFit, anIndexThatFitsAgainBehindDamageIsRight) {
  const Bytes clip = contentsOf(makeClip({.seconds = 6}));
  const std::size_t place = clip.size() / 3;
  const struct {
    const char* label;
    Bytes file;
  } rows[] = {{"whole", clip}, {"noise", overwritten(clip, place, foreignCluster(cluster))}};
  for (const auto& row : rows) {
    EXPECT_TRUE(
        std::holds_alternative<VideoRepair::Healthy>(VideoRepair::diagnose(MemorySource(row.file))))
        << row.label;
  }
}

}  // namespace
}  // namespace tallowmark::testing
