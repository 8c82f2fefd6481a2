// SPDX-License-Identifier: GPL-3.0-or-later
// How rebuilt pictures and their sound stand to each other.
#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Files.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::ClipRecipe;
using testing::Comparison;
using testing::makeClip;
using testing::Victim;

namespace fs = std::filesystem;

class SoundStep : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::canMakeClips()) {
      GTEST_SKIP() << "ffmpeg is not installed";
    }
  }

  /// The clip with pictures, or sound where it is negative, that start so many seconds late.
  fs::path delayed(const fs::path& clip, double seconds, const char* options = "disable_chpl") {
    fs::path late = folder_ / (std::to_string(++clips_) + clip.extension().string());
    const bool soundIsLate = seconds < 0;
    const auto made =
        testing::run({"ffmpeg", "-v", "error", "-i", clip.string(), "-itsoffset",
                      std::to_string(std::abs(seconds)), "-i", clip.string(), "-map",
                      soundIsLate ? "0:v" : "1:v", "-map", soundIsLate ? "1:a" : "0:a", "-c",
                      "copy", "-movflags", options, late.string()});
    EXPECT_EQ(made.exitCode, 0) << made.errors;
    return late;
  }

  /// The clip with an edit list that hides its first half second of pictures.
  fs::path trimmed(const fs::path& clip) {
    const FileSource source(clip.string());
    const BoxReader reader(source);
    Movie movie = MovieParser::parse(reader);
    movie.tracks.front().mediaStart += movie.tracks.front().timescale / 2;
    fs::path copy = folder_ / ("trimmed" + clip.extension().string());
    FileSink sink(copy.string());
    MovieWriter::write(movie, source, {0, source.size()}, sink);
    return copy;
  }

  testing::TemporaryFolder folder_;
  int clips_ = 0;
};

TEST_F(SoundStep, isThatOfTheOriginalsEditLists) {
  const ClipRecipe aac{.bFrames = 2, .seconds = 8};
  const ClipRecipe pcm{.container = "mov", .audio = "pcm_s16le", .seconds = 8};
  for (const ClipRecipe& recipe : {aac, pcm}) {
    ClipRecipe other = recipe;
    other.variant = 1;
    const auto clip = makeClip(recipe);
    const auto sibling = makeClip(other);
    const struct {
      const char* label;
      fs::path clip;
      fs::path reference;
    } rows[] = {
        {"bothLate", delayed(clip, 0.5), delayed(sibling, 0.5)},
        {"clipLate", delayed(clip, 0.5), sibling},
        {"referenceLate", clip, delayed(sibling, 0.5)},
        {"referenceLater", delayed(clip, 0.25), delayed(sibling, 0.75)},
        {"soundLate", delayed(clip, -0.5), sibling},
        {"referencesSoundLate", clip, delayed(sibling, -0.5)},
        {"picturesHidden", trimmed(clip), trimmed(clip)},
    };
    for (const auto& row : rows) {
      const Comparison c = rebuildAndCompare(Victim(row.clip), row.reference);
      EXPECT_LT(std::abs(c.worstStep), 1.0) << recipe.audio << row.label;
      EXPECT_LT(std::abs(c.worstTime), 0.01) << recipe.audio << row.label;
      EXPECT_EQ(c.exact, c.frames) << recipe.audio << row.label;
    }
  }
}

// An index in front that was overwritten with zeros hides where media begins, not what it begins
// with.
TEST_F(SoundStep, keepsWhatIsStoredAheadOfTheFirstPicture) {
  const auto clip = delayed(makeClip({.bFrames = 2, .seconds = 8}), 0.5, "faststart");
  testing::Bytes damaged = testing::contentsOf(clip);
  const MemorySource whole(damaged);
  const Box index = *MovieParser::layout(BoxReader(whole)).moov;
  std::fill_n(damaged.begin() + static_cast<std::ptrdiff_t>(index.offset), index.size,
              std::uint8_t{0});
  const MemorySource source(damaged);
  FileSink sink((folder_ / "copy").string());
  const auto result = VideoRepair::rebuild(source, FileSource(clip.string()), sink);
  EXPECT_EQ(static_cast<std::uint64_t>(result.audioPackets), result.soundBlocksFound);
  EXPECT_EQ(result.soundBlocksFound, Victim(clip).truth().audioTrack()->samples.size());
}

}  // namespace
}  // namespace tallowmark
