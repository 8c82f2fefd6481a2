// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Video/ClipStart.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

std::uint64_t mediaOf(const VideoRepair::ClipStart& start) {
  std::uint64_t bytes = 0;
  for (const ByteRange& range : start.ranges) bytes += range.length();
  return bytes;
}

TEST(ClipStart, holdsWhatPlaysFirstAndPlays) {
  if (!testing::canMakeClips()) {
    GTEST_SKIP() << "ffmpeg is not installed";
  }
  const testing::TemporaryFolder folder;
  for (const char* audio : {"aac", "pcm_s16le", ""}) {
    SCOPED_TRACE(audio);
    testing::ClipRecipe recipe{.container = "mov", .audio = audio, .bFrames = 2, .seconds = 6};
    const FileSource source(testing::makeClip(recipe).string());
    const Movie whole = MovieParser::parse(BoxReader(source));
    const auto start = VideoRepair::clipStart(whole, 2);
    const auto copy = folder / "start.mov";
    FileSink sink(copy.string());
    VideoRepair::write(start, source, sink);
    sink.close();
    EXPECT_EQ(testing::decodingComplaints(copy), "");
    const Movie cut = MovieParser::parse(BoxReader(FileSource(copy.string())));
    EXPECT_GE(cut.seconds(), 2);
    EXPECT_LT(cut.seconds(), 2.2);
    EXPECT_EQ(cut.tracks.size(), whole.tracks.size());
    EXPECT_LT(mediaOf(start), source.size() / 2);
    EXPECT_EQ(mediaOf(VideoRepair::clipStart(whole, 100)),
              mediaOf(VideoRepair::clipStart(whole, 6)));
  }
}

// An index that lies: pictures without duration, sound at the other end of a huge file, samples
// that overlap.
TEST(ClipStart, staysSmallWhateverTheIndexClaims) {
  constexpr std::uint64_t gigabyte = std::uint64_t{1} << 30U;
  Track video;
  video.kind = Track::Kind::video;
  video.timescale = 30;
  video.samples.append({100, 1U << 20U, 0, 0, true}, 100'000);
  Track sound;
  sound.kind = Track::Kind::audio;
  sound.timescale = 48'000;
  sound.samples.append({500 * gigabyte, 4, 1, 0, true}, 1U << 30U);
  sound.samples.append({150, 4, 1, 0, true}, 10);
  Movie movie;
  movie.tracks = {video, sound};
  const auto start = VideoRepair::clipStart(movie, 15);
  ASSERT_EQ(start.ranges.size(), 2U);
  EXPECT_EQ(start.ranges[0], (ByteRange{100, 100 + gigabyte}));
  EXPECT_EQ(start.ranges[1],
            (ByteRange{500 * gigabyte, 500 * gigabyte + std::uint64_t{15} * 48'000 * 4}));
  EXPECT_EQ(start.movie.tracks[1].samples.front().offset, gigabyte);
  EXPECT_EQ(mediaOf(VideoRepair::clipStart({}, 15)), 0U);
}

}  // namespace
}  // namespace tallowmark
