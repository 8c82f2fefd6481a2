// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

// A clip of a piece a second.
Bytes inPieces(const ClipRecipe& recipe, const char* flags, const TemporaryFolder& folder) {
  const fs::path pieces = folder / "pieces.mp4";
  run({"ffmpeg", "-v", "error", "-y", "-i", makeClip(recipe).string(), "-c", "copy", "-movflags",
       flags, pieces.string()});
  return contentsOf(pieces);
}

std::vector<Box> boxesOf(const Bytes& file, const char* type) {
  const MemorySource source(file);
  std::vector<Box> boxes = BoxReader(source).children(0, file.size());
  std::erase_if(boxes, [&](const Box& box) { return box.type != FourCC(type); });
  return boxes;
}

Bytes overwritten(Bytes file, std::uint64_t from, std::uint64_t to, bool noise) {
  std::mt19937 random(3);
  for (std::uint64_t at = from; at < to; ++at) {
    file[at] = noise ? static_cast<std::uint8_t>(random()) : std::uint8_t{0};
  }
  return file;
}

// What is shown when, with the bytes of each sample.
std::vector<std::string> shown(const ByteSource& source, Track::Kind kind) {
  const Movie movie = MovieParser::parse(BoxReader(source));
  const Track* track = kind == Track::Kind::video ? movie.videoTrack() : movie.audioTrack();
  std::vector<std::string> samples;
  std::uint64_t time = 0;
  for (const Sample sample : track->samples) {
    const Bytes bytes = source.read(sample.offset, sample.size);
    samples.push_back(std::to_string(time) + " " + std::to_string(sample.compositionOffset) +
                      (sample.isSync ? " key " : " ") + std::string(bytes.begin(), bytes.end()));
    time += sample.duration;
  }
  return samples;
}

TEST(LostPieces, comeBackByWhatTheOthersTeach) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const struct {
    const char* codec;
    const char* flags;
  } kinds[] = {{"libx264", "frag_keyframe+empty_moov"},
               {"libx265", "frag_keyframe+default_base_moof"}};
  for (const auto& [codec, flags] : kinds) {
    const Bytes clip = inPieces({.codec = codec, .bFrames = 2, .seconds = 4}, flags, folder);
    const std::vector<Box> indexes = boxesOf(clip, "moof");
    const Box index = indexes[1];
    const Box last = indexes.back();
    const struct {
      const char* label;
      Bytes file;
    } rows[] = {
        {"index zeroed", overwritten(clip, index.offset, index.end(), false)},
        {"index overwritten", overwritten(clip, index.offset, index.end(), true)},
        {"half of its table zeroed",
         overwritten(clip, index.offset + index.size / 2, index.end(), false)},
        {"half of its table overwritten",
         overwritten(clip, index.offset + index.size / 2, index.end() - 4, true)},
        {"header of its media zeroed", overwritten(clip, index.end(), index.end() + 8, false)},
        {"size of its media overwritten", overwritten(clip, index.end(), index.end() + 4, true)},
        {"last index zeroed", overwritten(clip, last.offset, last.end(), false)},
        {"header of the last media zeroed", overwritten(clip, last.end(), last.end() + 8, false)},
    };
    const MemorySource whole(clip);
    EXPECT_EQ(VideoRepair::diagnose(whole), VideoRepair::Diagnosis(VideoRepair::Healthy{}));
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(codec) + " " + flags + ": " + row.label);
      const MemorySource source(row.file);
      EXPECT_EQ(VideoRepair::diagnose(source), VideoRepair::Diagnosis(VideoRepair::Truncated{0}));
      const fs::path path = folder / "copy.mp4";
      {
        FileSink sink(path.string());
        (void)VideoRepair::repair(source, nullptr, sink);
      }
      const FileSource copy(path.string());
      for (const auto kind : {Track::Kind::video, Track::Kind::audio}) {
        EXPECT_TRUE(shown(copy, kind) == shown(whole, kind)) << static_cast<int>(kind);
      }
    }
  }
}

TEST(LostPieces, leaveTheRestInStep) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  const Bytes clip = inPieces({.seconds = 4}, "frag_keyframe+empty_moov", folder);
  const Box index = boxesOf(clip, "moof")[1];
  // The pictures that stand ahead of the sound go with the index.
  const std::uint64_t end = index.end() + boxesOf(clip, "mdat")[1].size / 2;
  const MemorySource source(overwritten(clip, index.offset, end, false));
  const fs::path path = folder / "copy.mp4";
  {
    FileSink sink(path.string());
    (void)VideoRepair::repair(source, nullptr, sink);
  }
  const FileSource copy(path.string());
  const MemorySource whole(clip);
  const auto pictures = shown(whole, Track::Kind::video);
  const auto kept = shown(copy, Track::Kind::video);
  EXPECT_LT(kept.size(), pictures.size());
  for (const auto& [all, some] :
       {std::pair(pictures, kept),
        std::pair(shown(whole, Track::Kind::audio), shown(copy, Track::Kind::audio))}) {
    for (const std::string& sample : some) {
      EXPECT_TRUE(std::find(all.begin(), all.end(), sample) != all.end());
    }
  }
}

TEST(LostPieces, allOfThemNeedAReference) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  Bytes clip = inPieces({}, "frag_keyframe+empty_moov", folder);
  for (const Box& index : boxesOf(clip, "moof")) {
    clip = overwritten(clip, index.offset, index.end(), false);
  }
  const MemorySource source(clip);
  EXPECT_EQ(VideoRepair::diagnose(source), VideoRepair::Diagnosis(VideoRepair::MissingIndex{}));
  const FileSource reference(makeClip({.variant = 1}).string());
  FileSink sink((folder / "copy.mp4").string());
  EXPECT_EQ(VideoRepair::repair(source, &reference, sink).videoFrames, 50U);
}

// Some cameras put records of their own there.
TEST(LostPieces, areNotSeenBehindAClipInOnePiece) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const MemorySource source(joined({contentsOf(makeClip({})), Bytes(100'000, 0x55)}));
  EXPECT_EQ(VideoRepair::diagnose(source), VideoRepair::Diagnosis(VideoRepair::Healthy{}));
}

}  // namespace
}  // namespace tallowmark::testing
