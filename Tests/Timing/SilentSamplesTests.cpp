// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Timing/SilentSamples.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "DeviceKit/FileSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Clips.h"

namespace tallowmark::testing {
namespace {

// What is silent in one format is a loud crack in another.
TEST(SilentSamples, areThoseOfTheFormat) {
  if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
  const struct {
    const char* audio;
    int silent;
  } rows[] = {{"pcm_s16le", 0}, {"pcm_u8", 0x80}, {"pcm_mulaw", 0xFF}, {"pcm_alaw", 0xD5}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.audio);
    const FileSource clip(makeClip({.container = "mov", .audio = row.audio}).string());
    Movie movie = MovieParser::parse(BoxReader(clip));
    const auto sound =
        std::find_if(movie.tracks.begin(), movie.tracks.end(),
                     [](const auto& track) { return track.kind == Track::Kind::audio; });
    ASSERT_NE(sound, movie.tracks.end());
    const SampleList all = sound->samples;
    Sample held = all[1000];
    held.duration = 24'001;
    sound->samples = all.slice(0, 1000);
    sound->samples.append(held);
    sound->samples.append(all.slice(1001, all.size()));
    const auto silence = VideoRepair::fillHolds(movie);
    EXPECT_EQ(sound->samples.size(), all.size() + 24'000);
    EXPECT_EQ(sound->samples.typicalDuration() * sound->samples.size(), sound->duration());
    EXPECT_EQ(silence.size(), 24'000U * held.size);
    EXPECT_TRUE(std::all_of(silence.begin(), silence.end(),
                            [&](std::uint8_t byte) { return byte == row.silent; }));
  }
}

// A file may say at each of a hundred losses that hours are missing there.
TEST(SilentSamples, areNoMoreThanARecordingCouldHave) {
  constexpr std::uint32_t ticks = 1024;
  constexpr std::uint32_t frameBytes = 4;
  constexpr std::uint64_t losses = 100;
  Movie movie;
  Track& sound = movie.tracks.emplace_back();
  sound.kind = Track::Kind::audio;
  sound.codec = "sowt";
  sound.trackID = 1;
  LostPiece& piece = movie.lostPieces.emplace_back();
  for (std::uint64_t i = 0; i < 3 * losses; ++i) {
    const bool isHeld = i % 3 == 1;
    sound.samples.append({.offset = i * frameBytes * ticks,
                          .size = frameBytes * ticks,
                          .duration = isHeld ? ticks << 19U : ticks,
                          .isSync = true});
    if (isHeld) piece.resumptions.push_back({1, i + 1, {}});
  }
  const std::uint64_t duration = sound.samples.duration();
  const auto silence = VideoRepair::fillLostSound(movie, MemorySource({}));
  EXPECT_EQ(silence.bytes.size(), frameBytes * ticks);
  EXPECT_GT(sound.samples.size(), 1'000'000U);
  EXPECT_LT(sound.samples.size(), 3'000'000U);
  EXPECT_EQ(sound.samples.duration(), duration);
}

}  // namespace
}  // namespace tallowmark::testing
