// SPDX-License-Identifier: GPL-3.0-or-later
// Clips whose index can be read and is overwritten in part.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

#include "DeviceKit/FileSink.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Files.h"

namespace tallowmark::testing {
namespace {

constexpr std::size_t sector = 512;

Movie parsed(const Bytes& file) {
  const MemorySource source(file);
  return MovieParser::parse(BoxReader(source));
}

bool saysMissing(const Bytes& file) {
  return std::holds_alternative<VideoRepair::MissingIndex>(
      VideoRepair::diagnose(MemorySource(file)));
}

bool saysHealthy(const Bytes& file, VideoRepair::Depth depth = VideoRepair::Depth::full) {
  return std::holds_alternative<VideoRepair::Healthy>(
      VideoRepair::diagnose(MemorySource(file), depth));
}

Box indexBoxOf(const Bytes& file) {
  const MemorySource source(file);
  return MovieParser::layout(BoxReader(source)).moov.value();
}

// Where the `nth` box of that name in the index starts.
std::size_t boxAt(const Bytes& file, std::string_view name, int nth = 0) {
  auto at = file.begin() + static_cast<std::ptrdiff_t>(indexBoxOf(file).offset);
  for (;; --nth, ++at) {
    at = std::search(at, file.end(), name.begin(), name.end());
    if (nth == 0) return static_cast<std::size_t>(at - file.begin()) - 4;
  }
}

Bytes filled(Bytes file, std::size_t at, std::size_t count, std::uint8_t with = 0) {
  std::fill_n(file.begin() + static_cast<std::ptrdiff_t>(at), count, with);
  return file;
}

// What players go by: of pictures and of sound the codec, and where, how large, how long and when
// each sample is.
auto playedBy(const Movie& movie) {
  std::vector<std::tuple<std::uint32_t, std::uint64_t, std::uint64_t, std::int64_t, std::int64_t>>
      all;
  for (const Track* track : {movie.videoTrack(), movie.audioTrack()}) {
    if (track == nullptr) continue;
    const auto pictures = codecOf(track->codec);
    const bool hasSets =
        pictures && !ParameterSets::of(track->sampleEntry, *pictures).pictures.empty();
    all.emplace_back(track->codec.value, track->timescale, hasSets ? 1 : 0, 0, 0);
    for (const Sample& s : track->samples) {
      all.emplace_back(0, s.offset, s.size, s.duration, s.compositionOffset);
    }
  }
  return all;
}

class DamagedIndex : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  }
};

TEST_F(DamagedIndex, aLostSectorIsSeenOrHarmsNothing) {
  for (const ClipRecipe& recipe :
       {ClipRecipe{.bFrames = 2, .seconds = 6}, ClipRecipe{.codec = "libx265", .seconds = 6},
        ClipRecipe{.container = "mov", .audio = "pcm_s16le", .seconds = 6}}) {
    const Bytes clip = contentsOf(makeClip(recipe));
    const Box index = indexBoxOf(clip);
    const auto whole = playedBy(parsed(clip));
    ASSERT_FALSE(saysMissing(clip));
    for (std::uint64_t at = index.payloadOffset(); at + sector < index.end(); at += 97) {
      const Bytes damaged = filled(clip, at, sector);
      SCOPED_TRACE(recipe.codec + " " + recipe.audio + " " + std::to_string(at - index.offset));
      EXPECT_TRUE(saysMissing(damaged) || playedBy(parsed(damaged)) == whole);
      // Other bytes lead past the file's end, too.
      const Bytes other = filled(clip, at, sector, 0xFF);
      EXPECT_TRUE(!saysHealthy(other) || playedBy(parsed(other)) == whole);
    }
  }
}

TEST_F(DamagedIndex, isTakenForNoneAndMadeAnew) {
  ClipRecipe recipe{.seconds = 4};
  const Bytes clip = contentsOf(makeClip(recipe));
  recipe.variant = 1;
  const MemorySource reference(contentsOf(makeClip(recipe)));
  const struct {
    const char* label;
    Bytes file;
  } rows[] = {
      {"sound's track renamed", filled(clip, boxAt(clip, "trak", 1) + 4, 4, 'x')},
      {"settings", filled(clip, boxAt(clip, "avcC") + 8, 36)},
      {"durations", filled(clip, boxAt(clip, "stts") + 12, 12)},
      {"number of sizes", filled(clip, boxAt(clip, "stsz") + 16, 4)},
      {"sizes", filled(clip, boxAt(clip, "stsz") + 20, 200)},
      {"places of sound", filled(clip, boxAt(clip, "stco", 1) + 16, 80)},
      {"clock", filled(clip, boxAt(clip, "mdhd") + 20, 4)},
      {"a size", filled(clip, boxAt(clip, "stsc"), 4)},
      {"a name", filled(clip, boxAt(clip, "minf", 1) + 7, 1)},
  };
  const TemporaryFolder folder;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    EXPECT_TRUE(saysMissing(row.file));
    EXPECT_TRUE(saysHealthy(row.file, VideoRepair::Depth::basic));
    const auto copy = folder / "copy.mp4";
    std::filesystem::remove(copy);
    FileSink sink(copy.string());
    const auto result = VideoRepair::repair(MemorySource(row.file), &reference, sink);
    sink.close();
    EXPECT_EQ(result.videoFrames, parsed(clip).videoTrack()->samples.size());
    EXPECT_EQ(result.audioPackets, parsed(clip).audioTrack()->samples.size());
  }
}

// Some recorders pad, end a container in zeros, have boxes of their own, or leave a picture out.
TEST_F(DamagedIndex, oddIndexesAreWhole) {
  const Bytes clip = contentsOf(makeClip({.seconds = 4}));
  const Box index = indexBoxOf(clip);
  const Bytes until(clip.begin(), clip.begin() + static_cast<std::ptrdiff_t>(index.offset));
  const Bytes inside(clip.begin() + static_cast<std::ptrdiff_t>(index.payloadOffset()),
                     clip.begin() + static_cast<std::ptrdiff_t>(index.end()));
  const struct {
    const char* label;
    Bytes more;
  } rows[] = {{"end in zeros", zeros(4)},
              {"padding", zeros(3000)},
              {"a name that is no text", makeBox(FourCC(0x01020304U), {zeros(20)})},
              {"an empty box", makeBox("free", {})},
              {"an unknown box", makeBox("xtra", {zeros(40)})}};
  for (const auto& row : rows) {
    const Bytes odd = joined({until, makeBox("moov", {inside, row.more})});
    EXPECT_TRUE(saysHealthy(odd)) << row.label;
  }
  const Bytes fewEmpty = filled(clip, boxAt(clip, "stsz", 1) + 20, 24);
  EXPECT_TRUE(saysHealthy(fewEmpty));
}

}  // namespace
}  // namespace tallowmark::testing
