// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/FrameFinder.h"

#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MovieParser.h"
#include "Tests/Support/Clips.h"

namespace tallowmark {
namespace {

// Searching refuses most positions by a few bytes, sixteen positions at a time; it must not refuse
// one at which a frame is found by looking.
TEST(FrameFinder, searchingFindsWhatLookingEverywhereFinds) {
  const testing::ClipRecipe recipes[] = {
      {.codec = "libx264", .container = "mov", .audio = "pcm_s16le", .bFrames = 2},
      {.codec = "libx265", .container = "mov", .audio = "pcm_s16le", .bFrames = 2}};
  for (const auto& recipe : recipes) {
    SCOPED_TRACE(recipe.codec);
    const FileSource clip(testing::makeClip(recipe).string());
    const Movie movie = MovieParser::parse(BoxReader(clip));
    const Track& video = *movie.videoTrack();
    const auto evidence =
        StreamEvidence::learn(video, clip, *NALFormat::of(video.sampleEntry, video.codec));
    ASSERT_TRUE(evidence);
    constexpr std::uint64_t maxFrameSize = std::uint64_t{4} << 20U;
    FrameFinder looking(clip, clip.size(), *evidence, maxFrameSize);
    FrameFinder searching(clip, clip.size(), *evidence, maxFrameSize);
    std::uint64_t at = 0;
    std::size_t found = 0;
    for (auto frame = searching.search(0, clip.size()); frame;
         frame = searching.search(at, clip.size()), ++found) {
      for (; at < frame->offset; ++at) {
        ASSERT_FALSE(looking.frameAt(at, FrameFinder::Trust::learntOnly)) << "missed at " << at;
      }
      ASSERT_TRUE(looking.frameAt(at, FrameFinder::Trust::learntOnly)) << "invented at " << at;
      ++at;
    }
    for (; at < clip.size(); ++at) {
      ASSERT_FALSE(looking.frameAt(at, FrameFinder::Trust::learntOnly)) << "missed at " << at;
    }
    EXPECT_GE(found, video.samples.size());
  }
}

}  // namespace
}  // namespace tallowmark
