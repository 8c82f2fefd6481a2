// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "MediaKit/Walk/MediaWalk.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::joined;
using testing::u32;

constexpr std::size_t mebibyte = std::size_t{1} << 20U;

// A frame of one slice; bytes that could be read as a unit are kept out of it.
Bytes frameOf(std::uint8_t header, std::size_t size) {
  Bytes frame = u32(static_cast<std::uint32_t>(size - 4));
  frame.resize(size, 0xB7);
  frame[4] = header;
  frame[5] = 0x9A;
  return frame;
}

VideoRepair::Findings walk(const Bytes& media, std::optional<PCMLayout> pcm) {
  const NALFormat format{NALFormat::Codec::h264, 4, std::set<std::uint16_t>{0x65, 0x41}};
  const MemorySource source(media);
  return VideoRepair::walk(source, 0, format, pcm, 512, mebibyte);
}

TEST(Walk, gapsOfWholeSamplesAreSound) {
  struct Row {
    const char* label;
    std::optional<PCMLayout> pcm;
    std::size_t gap;
    std::uint64_t samples;
    std::uint64_t unused;
    bool seen;
  };
  const std::vector<Row> rows{
      {"backToBack", PCMLayout{4}, 0, 0, 0, false},
      {"wholeSamples", PCMLayout{4}, 4000, 1000, 0, true},
      {"halfASampleTooMuch", PCMLayout{4}, 4002, 0, 4002, true},
      {"compressedSound", std::nullopt, 4000, 0, 4000, true},
  };
  for (const Row& row : rows) {
    const Bytes first = frameOf(0x65, 5000);
    const Bytes media =
        joined({first, Bytes(row.gap, 0x11), frameOf(0x41, 3000), frameOf(0x41, 2000)});
    const auto found = walk(media, row.pcm);
    EXPECT_EQ(found.video.size(), 3U) << row.label;
    EXPECT_EQ(found.audio.size(), row.samples) << row.label;
    EXPECT_EQ(found.unused, row.unused) << row.label;
    EXPECT_EQ(found.audioSeen, row.seen) << row.label;
    EXPECT_EQ(found.video.front(), (Sample{0, 5000, 512, 0, true})) << row.label;
    if (row.samples > 0) {
      EXPECT_EQ(found.audio.front(), (Sample{first.size(), 4, 1, 0, true})) << row.label;
    }
  }
}

TEST(Walk, whatFollowsTheLastFrameIsUnused) {
  const auto found = walk(joined({frameOf(0x65, 5000), Bytes(400, 0x11)}), PCMLayout{4});
  EXPECT_EQ(found.unused, 400U);
  EXPECT_FALSE(found.audioSeen);
}

TEST(Walk, garbageLongerThanTheBufferEndsNothing) {
  for (const std::uint8_t filling : {std::uint8_t{0x00}, std::uint8_t{0x33}}) {
    const Bytes media =
        joined({frameOf(0x65, 5000), Bytes(70 * mebibyte + 1, filling), frameOf(0x41, 3000)});
    const auto found = walk(media, std::nullopt);
    EXPECT_EQ(found.video.size(), 2U) << int{filling};
    EXPECT_EQ(found.unused, 70 * mebibyte + 1) << int{filling};
  }
}

TEST(Walk, nextFrameStartsAtTheSearchedPositionOrBehind) {
  const NALFormat format{NALFormat::Codec::h264, 4, std::nullopt};
  const Bytes media = joined({Bytes(101, 0x11), frameOf(0x65, 500)});
  EXPECT_EQ(VideoRepair::nextFrame(format, media, 0, mebibyte), 101U);
  EXPECT_EQ(VideoRepair::nextFrame(format, media, 101, mebibyte), 101U);
  EXPECT_EQ(VideoRepair::nextFrame(format, media, 102, mebibyte), std::nullopt);
}

// Rows are followed frame by frame where they are short; a sample table can claim any length.
TEST(Turns, areNotFollowedInRowsOfBillions) {
  for (const auto& [length, isFollowed] :
       {std::pair(std::uint64_t{2}, true), {std::uint64_t{1} << 30U, false}}) {
    Movie movie;
    movie.tracks.resize(2);
    std::uint64_t offset = 0;
    for (int row = 0; row < 40; ++row) {
      Track& track = movie.tracks[static_cast<std::size_t>(row % 2)];
      track.kind = Track::Kind::video;
      track.samples.append({.offset = offset, .size = 1, .duration = 1}, length);
      offset += length;
    }
    const Turns turns = turnsOf(movie, movie.tracks.front());
    EXPECT_EQ(turns.mostInARow, length);
    EXPECT_EQ(turns.rows.has_value(), isFollowed) << length;
  }
}

}  // namespace
}  // namespace tallowmark
