// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/ClipInfo.h"

#include <gtest/gtest.h>

#include <cmath>

namespace tallowmark {
namespace {

Movie movieWith(FourCC codec, double width, double height, std::uint32_t timescale,
                std::uint32_t duration) {
  Movie movie;
  Track& track = movie.tracks.emplace_back();
  track.kind = Track::Kind::video;
  track.codec = codec;
  track.width = width;
  track.height = height;
  track.timescale = timescale;
  if (duration > 0) track.samples.append({.offset = 0, .size = 1, .duration = duration}, 10);
  return movie;
}

TEST(ClipInfos, areSummedUpInOneLine) {
  const struct {
    Movie movie;
    const char* summary;
  } rows[] = {{movieWith("avc1", 1920, 1080, 30000, 1001), "H.264 · 1920×1080 · 29.97 fps"},
              {movieWith("hvc1", 3840, 2160, 25000, 1000), "HEVC · 3840×2160 · 25 fps"},
              {movieWith("ap4h", 719.9, 576, 50, 0), "ProRes · 719×576 · 50 fps"},
              {movieWith("xyz ", 4, 4, 0, 1), "xyz · 4×4"}};
  for (const auto& [movie, summary] : rows) EXPECT_EQ(ClipInfo::of(movie)->summary(), summary);
  EXPECT_EQ(ClipInfo::ofPhoto(4000, 3000, "JPEG").summary(), "JPEG · 4000×3000");
}

TEST(ClipInfos, areAbsentWithoutVideoOrASizeThatMakesSense) {
  Movie sound = movieWith("mp4a", 0, 0, 48000, 1024);
  sound.tracks[0].kind = Track::Kind::audio;
  EXPECT_EQ(ClipInfo::of(sound), std::nullopt);
  EXPECT_EQ(ClipInfo::of(movieWith("avc1", NAN, 4, 1, 1)), std::nullopt);
  EXPECT_EQ(ClipInfo::of(movieWith("avc1", 4, 1e19, 1, 1)), std::nullopt);
}

TEST(CodecNames, areTheOnesPeopleKnow) {
  const struct {
    const char* code;
    const char* name;
  } rows[] = {{"avc3", "H.264"},  {"hev1", "HEVC"}, {"mp4a", "AAC"}, {"raw ", "PCM"},
              {"apco", "ProRes"}, {"alac", "alac"}, {"    ", ""},    {"\tx y", "x y"}};
  for (const auto& [code, name] : rows) EXPECT_EQ(ClipInfo::name(FourCC(code)), name);
}

}  // namespace
}  // namespace tallowmark
