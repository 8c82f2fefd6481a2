// SPDX-License-Identifier: GPL-3.0-or-later
// Sound in long chunks of which something is lost, and how far pictures are from it then.
#include <gtest/gtest.h>

#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"
#include "Tests/Video/GroundTruth.h"

namespace tallowmark {
namespace {

using testing::ClipRecipe;
using testing::livelySound;
using testing::makeClip;
using testing::Victim;

namespace fs = std::filesystem;

// The clip again, a chunk of sound every so many seconds.
fs::path inChunks(const ClipRecipe& recipe, const char* microseconds, const fs::path& folder) {
  fs::path clip = folder / (recipe.audio + std::to_string(recipe.variant) + ".mov");
  const auto made =
      testing::run({"ffmpeg", "-v", "error", "-y", "-i", makeClip(recipe).string(), "-map", "0",
                    "-c", "copy", "-chunk_duration", microseconds, clip.string()});
  EXPECT_EQ(made.exitCode, 0) << made.errors;
  return clip;
}

// Where each chunk of sound lies.
std::vector<ByteRange> chunksOf(const Track& audio) {
  std::vector<ByteRange> chunks;
  for (const Sample& sample : audio.samples) {
    if (!chunks.empty() && chunks.back().upper == sample.offset) {
      chunks.back().upper += sample.size;
    } else {
      chunks.push_back({sample.offset, sample.offset + sample.size});
    }
  }
  return chunks;
}

// Holes within chunks are as long as their bytes say, wherever in them they are.
TEST(SoundBesideHoles, holesWithinChunksAreSilentWhereTheyAre) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  const ClipRecipe recipe{
      .bFrames = 2, .seconds = 12, .sound = livelySound(2, 48000), .channels = 2};
  const fs::path clip = inChunks(recipe, "2000000", folder.path());
  const Victim whole(clip);
  const auto chunks = chunksOf(*whole.truth().audioTrack());
  ASSERT_GT(chunks.size(), 4U);
  for (const std::size_t number : {std::size_t{0}, std::size_t{2}}) {
    Victim victim(clip);
    const ByteRange& chunk = chunks[number];
    for (const std::uint64_t part : {1U, 3U, 5U}) {
      const std::uint64_t at = chunk.lower + chunk.length() * part / 8;
      victim.blank(at, at + chunk.length() / 8);
    }
    const auto c = rebuildAndCompare(victim, clip);
    EXPECT_LT(c.apart, 0.1) << number;
    EXPECT_GE(c.blocksExact + 1, c.blocks) << number;
    EXPECT_EQ(c.blocksInvented, 0U) << number;
  }
}

// Chunks that are alike tell to the block what was lost of them together with pictures, though the
// first one stands further ahead of these, and each loss takes its own part. `apart`: seconds that
// picture and sound may be apart.
void expectChunksToTell(const std::string& audio, double apart) {
  const testing::TemporaryFolder folder;
  ClipRecipe recipe{.container = "mov",
                    .audio = audio,
                    .bFrames = 2,
                    .seconds = 16,
                    .sound = livelySound(2, 48000),
                    .channels = 2};
  const fs::path clip = inChunks(recipe, "1000000", folder.path());
  recipe.variant = 1;
  const fs::path sibling = inChunks(recipe, "1000000", folder.path());
  const Victim whole(clip);
  const auto chunks = chunksOf(*whole.truth().audioTrack());
  const SampleList& pictures = whole.truth().videoTrack()->samples;
  ASSERT_GT(chunks.size(), 12U);
  const auto pictureBehind = [&](std::uint64_t at, std::size_t more) {
    std::size_t i = 0;
    while (pictures[i].offset < at) ++i;
    return pictures[i + more].offset;
  };
  const auto middle = [](const ByteRange& chunk) { return chunk.lower + chunk.length() / 2; };
  const struct {
    const char* label;
    std::vector<ByteRange> holes;
  } rows[] = {
      {"the end of one and pictures", {{middle(chunks[4]), pictureBehind(chunks[4].upper, 7)}}},
      {"pictures and the start of one", {{chunks[5].lower - 9000, middle(chunks[5])}}},
      {"all of one", {{chunks[5].lower - 2000, pictureBehind(chunks[5].upper, 3)}}},
      {"two in a row",
       {{middle(chunks[4]), pictureBehind(chunks[4].upper, 4)},
        {middle(chunks[5]), pictureBehind(chunks[5].upper, 4)}}},
      {"every other one",
       {{middle(chunks[3]), pictureBehind(chunks[3].upper, 2)},
        {middle(chunks[5]), pictureBehind(chunks[5].upper, 2)},
        {middle(chunks[7]), pictureBehind(chunks[7].upper, 2)},
        {middle(chunks[9]), pictureBehind(chunks[9].upper, 2)}}},
  };
  for (const auto& row : rows) {
    Victim victim(clip);
    for (const ByteRange& hole : row.holes) victim.blank(hole.lower, hole.upper);
    for (const fs::path& reference : {clip, sibling}) {
      EXPECT_LT(rebuildAndCompare(victim, reference).apart, apart) << row.label << reference;
    }
  }
}

TEST(SoundBesideHoles, chunksTellWhatIsMissingOfThem) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  expectChunksToTell("aac", 0.08);
  expectChunksToTell("pcm_s16le", 0.2);
}

// The last chunk is shorter, and less far ahead, than those before it. What is lost before it is no
// more than makes sound end with the pictures.
TEST(SoundBesideHoles, soundEndsWithThePictures) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const auto clip = testing::corpusFile(fs::path("video") / "iphone_hevc10_moovfirst_editlist.mov");
  if (!clip) {
    GTEST_SKIP() << "the folder of real camera files is not beside the source tree";
  }
  const Victim whole(*clip);
  const auto chunks = chunksOf(*whole.truth().audioTrack());
  const SampleList& pictures = whole.truth().videoTrack()->samples;
  ASSERT_EQ(chunks.size(), 3U);
  const auto behind = std::find_if(pictures.begin(), pictures.end(), [&](const Sample& picture) {
    return picture.offset > chunks[1].upper + 100'000;
  });
  for (const std::uint64_t to : {chunks[1].upper, (*behind).offset}) {
    Victim victim(*clip);
    victim.blank(chunks[1].lower, to);
    EXPECT_LT(rebuildAndCompare(victim, *clip).apart, 0.1) << to;
  }
}

// What is left of a picture is no sound, though it may be as long as a chunk and lie between two
// pictures that could follow one another: it does not sound so, and the counts miss it.
TEST(SoundBesideHoles, tornPicturesAreNoSound) {
  const auto clip = testing::corpusFile(fs::path("video") / "iphoneXR_IMG_3589_hevc_lpcm.mov");
  if (!clip) {
    GTEST_SKIP() << "the folder of real camera files is not beside the source tree";
  }
  const Victim whole(*clip);
  const SampleList& pictures = whole.truth().videoTrack()->samples;
  const std::uint64_t samples = whole.truth().audioTrack()->samples.size();
  for (const std::uint64_t torn : {9U, 37U, 42U, 62U, 79U}) {
    Victim victim(*clip);
    victim.blank(pictures[torn].offset, pictures[torn].offset + 4096);
    const auto c = rebuildAndCompare(victim, *clip);
    EXPECT_LE(static_cast<std::uint64_t>(c.result.audioPackets), samples) << torn;
    EXPECT_EQ(c.soundWrong, 0U) << torn;
    EXPECT_LT(c.apart, 0.05) << torn;
  }
}

// A chunk as long as the reference's is one, with half of it destroyed, too: the rest of it is
// heard when it was.
TEST(SoundBesideHoles, aChunkDestroyedInPartKeepsItsPlace) {
  const auto clip = testing::corpusFile(fs::path("video") / "iphoneXR_IMG_3589_hevc_lpcm.mov");
  if (!clip) {
    GTEST_SKIP() << "the folder of real camera files is not beside the source tree";
  }
  const Victim whole(*clip);
  const ByteRange chunk = chunksOf(*whole.truth().audioTrack()).front();
  Victim victim(*clip);
  victim.blank(chunk.lower + chunk.length() / 4, chunk.lower + chunk.length() * 5 / 8);
  const auto c = rebuildAndCompare(victim, *clip);
  EXPECT_LT(c.apart, 0.05);
}

}  // namespace
}  // namespace tallowmark
