// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

Bytes noiseOf(std::size_t size) {
  std::mt19937 random(7);
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

Bytes withHead(Bytes file, const Bytes& head) {
  std::copy(head.begin(), head.end(), file.begin());
  return file;
}

// The media box claims two gigabytes: what follows seems to lie in it.
Bytes withLongMedia(const Bytes& file) {
  const MemorySource source(file);
  const Box media = MovieParser::layout(BoxReader(source)).mdats.front();
  Bytes changed = file;
  changed[static_cast<std::size_t>(media.offset)] = 0x7F;
  return changed;
}

Bytes indexOf(const Bytes& file) {
  const MemorySource source(file);
  const BoxReader reader(source);
  return reader.whole(*MovieParser::layout(reader).moov);
}

Bytes withEmptySamples(Bytes index) {
  const std::string_view name = "stsz";
  const auto table = std::search(index.begin(), index.end(), name.begin(), name.end());
  const auto count =
      bigEndian<std::uint32_t>(index, static_cast<std::size_t>(table - index.begin()) + 12);
  std::fill_n(table + 16, 4 * count, std::uint8_t{0});
  return index;
}

std::uint64_t framesFromKeyBehind(const Bytes& file, std::uint64_t place) {
  const MemorySource source(file);
  const SampleList frames = MovieParser::parse(BoxReader(source)).videoTrack()->samples;
  std::uint64_t first = 0;
  while (!frames[first].isSync || frames[first].offset < place) ++first;
  return frames.size() - first;
}

TEST(LostIndex, isFoundWhereItDescribesTheClip) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  for (const char* codec : {"libx264", "libx265"}) {
    ClipRecipe recipe{.codec = codec, .seconds = 4};
    const Bytes clip = contentsOf(makeClip(recipe));
    recipe.variant = 1;
    const Bytes other = contentsOf(makeClip(recipe));
    const struct {
      const char* label;
      Bytes file;
      bool isFound;
    } rows[] = {
        {"zeros over the head", withHead(clip, zeros(8000)), true},
        {"noise over the head", withHead(clip, noiseOf(8000)), true},
        {"behind a size that is wrong", withLongMedia(clip), true},
        {"of another recording", withLongMedia(joined({withoutIndex(clip), indexOf(other)})),
         false},
        {"of pictures without bytes",
         withLongMedia(joined({withoutIndex(clip), withEmptySamples(indexOf(clip))})), false},
        {"gone with the head", withHead(withoutIndex(clip), zeros(8000)), false},
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(std::string(codec) + ": " + row.label);
      const MemorySource source(row.file);
      const VideoRepair::Diagnosis diagnosis = VideoRepair::diagnose(source);
      EXPECT_EQ(diagnosis, row.isFound ? VideoRepair::Diagnosis(VideoRepair::Truncated{0})
                                       : VideoRepair::Diagnosis(VideoRepair::MissingIndex{}));
      if (!row.isFound) continue;
      FileSink sink(folder / "copy.mp4");
      const MemorySource whole(clip);
      EXPECT_EQ(VideoRepair::trim(source, sink).videoFrames,
                MovieParser::parse(BoxReader(whole)).videoTrack()->samples.size());
    }
  }
}

TEST(LostIndex, isRebuiltForAClipWithoutHead) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const TemporaryFolder folder;
  for (const char* codec : {"libx264", "libx265"}) {
    ClipRecipe recipe{.codec = codec, .bFrames = 2, .seconds = 4};
    const fs::path reference = makeClip(recipe);
    recipe.variant = 1;
    const Bytes clip = contentsOf(makeClip(recipe));
    for (const Bytes& head : {zeros(9000), noiseOf(9000)}) {
      const MemorySource source(withHead(withoutIndex(clip), head));
      const FileSource teacher(reference.string());
      const fs::path copy = folder / "copy.mp4";
      {
        FileSink sink(copy.string());
        const auto result = VideoRepair::repair(source, &teacher, sink);
        EXPECT_EQ(result.videoFrames, framesFromKeyBehind(clip, head.size())) << codec;
        EXPECT_GT(result.audioPackets, 100U) << codec;
      }
      EXPECT_EQ(decodingComplaints(copy), "") << codec;
    }
  }
}

TEST(LostIndex, isNotLookedForInWhatIsNoClip) {
  Bytes text;
  while (text.size() < 2'000'000) {
    const std::string_view line = "It was a dark and stormy night; the rain fell in torrents.\n";
    text.insert(text.end(), line.begin(), line.end());
  }
  for (const Bytes& file : {text, zeros(2'000'000), noiseOf(20'000'000), Bytes(3'000'000, 0xFF)}) {
    EXPECT_EQ(VideoRepair::diagnose(MemorySource(file)),
              VideoRepair::Diagnosis(VideoRepair::NotAMovie{}));
  }
}

}  // namespace
}  // namespace tallowmark::testing
