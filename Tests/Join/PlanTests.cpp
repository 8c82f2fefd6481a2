// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <cmath>

#include "Chapters.h"
#include "MediaKit/Join/JoinPlan.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark::ClipJoin {
namespace {

using namespace tallowmark::testing;

Track track(std::uint32_t id, Track::Kind kind, const char* codec, std::uint32_t timescale,
            std::uint32_t ticks, std::uint64_t count) {
  Track made;
  made.trackID = id;
  made.kind = kind;
  made.handler = kind == Track::Kind::video ? "vide" : kind == Track::Kind::audio ? "soun" : "meta";
  made.codec = codec;
  made.sampleEntry = makeBox(codec, {zeros(kind == Track::Kind::other ? 8 : 78)});
  made.timescale = timescale;
  made.samples.append({std::uint64_t{1000} * id, 10, ticks, 0, true}, count);
  return made;
}

Track video(std::uint64_t frames) {
  return track(1, Track::Kind::video, "avc1", 30000, 1001, frames);
}
Track sound(std::uint64_t packets) {
  return track(2, Track::Kind::audio, "mp4a", 48000, 1024, packets);
}
Track telemetry(std::uint64_t count, const char* codec = "gpmd", std::uint32_t id = 3) {
  return track(id, Track::Kind::other, codec, 1000, 500, count);
}

Part part(std::vector<Track> tracks) {
  Part made;
  made.movie.tracks = std::move(tracks);
  return made;
}

// How much later than the picture each part of the other track starts, in seconds, where each part
// holds `frames` frames and `count` samples.
std::vector<double> offsetsAtSeams(const Movie& movie, std::size_t other, std::uint64_t frames,
                                   std::uint64_t count, std::size_t parts) {
  std::vector<double> offsets;
  for (std::size_t i = 1; i < parts; ++i) {
    offsets.push_back(startOf(movie.tracks[other], i * count) -
                      startOf(movie.tracks[0], i * frames));
  }
  return offsets;
}

TEST(Plan, keepsEveryPartTogether) {
  struct Row {
    const char* label;
    std::uint64_t frames;
    std::uint64_t packets;
    double largest;  // seconds apart
    bool plain;      // durations stay as they were
  };
  constexpr double packet = 1024.0 / 48000;
  for (const Row& row : {
           Row{"equal", 300, 469, packet, true},  // 10.010 s, 10.005 s
           Row{"sound a little short", 300, 468, packet, false},
           Row{"sound a little long", 300, 471, packet, false},
           Row{"sound much longer", 300, 600, packet, false},
           Row{"sound much shorter", 300, 300, packet, false},
           Row{"few frames", 2, 1, packet, false},
       }) {
    const std::size_t parts = row.plain ? 4 : 20;
    const std::vector<Part> twenty(parts,
                                   part({video(row.frames), sound(row.packets), telemetry(19)}));
    const Plan joined = plan(twenty);
    for (const double offset : offsetsAtSeams(joined.movie, 1, row.frames, row.packets, parts)) {
      EXPECT_LE(std::fabs(offset), row.largest + 1e-9) << row.label;
    }
    for (const double offset : offsetsAtSeams(joined.movie, 2, row.frames, 19, parts)) {
      EXPECT_LE(std::fabs(offset), 0.0101) << row.label << ": telemetry";
    }
    EXPECT_EQ(joined.movie.tracks[0].samples.size(), parts * row.frames) << row.label;
    EXPECT_EQ(joined.movie.tracks[1].samples.size(), parts * row.packets) << row.label;
    EXPECT_EQ(joined.movie.tracks[1].duration() == parts * row.packets * 1024 &&
                  joined.movie.tracks[0].duration() == parts * row.frames * 1001,
              row.plain)
        << row.label;
  }
}

TEST(Plan, leavesNoPauseInPCMSound) {
  Track pcm = track(2, Track::Kind::audio, "sowt", 48000, 1, 470'000);  // 218 ms less than picture
  const Movie joined = plan(std::vector<Part>(5, part({video(300), pcm}))).movie;
  EXPECT_EQ(joined.tracks[1].duration(), 5U * 470'000);
  for (const double offset : offsetsAtSeams(joined, 1, 300, 470'000, 5)) {
    EXPECT_NEAR(offset, 0, 0.0101);
  }
}

TEST(Plan, honoursTheEditListsOfLaterParts) {
  Part first = part({video(300), sound(470)});
  Part second = first;
  second.movie.timescale = 1000;
  second.movie.tracks[1].startDelay = 500;    // its sound starts half a second late
  second.movie.tracks[0].mediaStart = 30030;  // its first second of picture was hidden
  const Movie joined = plan(std::vector{first, second}).movie;
  // Alone, the second part presents sample time 0 of its sound 1.5 s after that of its picture.
  EXPECT_NEAR(startOf(joined.tracks[1], 470) - startOf(joined.tracks[0], 300), 1.5, 0.022);
}

TEST(Plan, choosesTracksThatEveryPartHas) {
  Part first = part({video(2), telemetry(1), telemetry(1), telemetry(1, "fdsc", 4), sound(3),
                     sound(3), telemetry(1, "djmd", 5)});
  first.movie.tracks[2].trackID = 9;
  first.movie.tracks[0].extraBoxes = {
      makeBox("tref", {makeBox("cdsc", {u32(4)}), makeBox("tmcd", {u32(3), u32(5), u32(4)})}),
      makeBox("udta", {})};
  first.movie.tracks[1].extraBoxes = {makeBox("tref", {makeBox("cdsc", {u32(4)}), u32(77)})};
  const Part second =
      part({telemetry(1, "djmd", 1), sound(3), video(2), telemetry(1), telemetry(1)});
  Plan joined = plan(std::vector{first, second});
  std::vector<std::uint32_t> ids;
  for (const Track& track : joined.movie.tracks) ids.push_back(track.trackID);
  EXPECT_EQ(ids, (std::vector<std::uint32_t>{1, 3, 9, 2, 5}));
  EXPECT_EQ(joined.kept, 3);
  EXPECT_EQ(joined.dropped, 1);
  const std::vector<Bytes> references{makeBox("tref", {makeBox("tmcd", {u32(3), u32(5)})}),
                                      makeBox("udta", {})};
  EXPECT_EQ(joined.movie.tracks[0].extraBoxes, references);
  EXPECT_TRUE(joined.movie.tracks[1].extraBoxes.empty());

  const Part third = part({video(2), telemetry(1), sound(3), telemetry(1, "djmd")});
  joined = plan(std::vector{first, second, third});
  EXPECT_EQ(joined.kept, 2) << "two tracks alike, and only one of them in the third part";
  EXPECT_EQ(joined.dropped, 2);
}

TEST(Plan, waitsForTracksWithoutSamples) {
  const Part filled = part({video(300), telemetry(20)});
  const Part empty = part({video(300), telemetry(0)});
  const Movie gap = plan(std::vector{filled, empty, filled}).movie;
  EXPECT_NEAR(startOf(gap.tracks[1], 20), 20.02, 0.011);
  const Movie late = plan(std::vector{empty, filled}).movie;
  EXPECT_NEAR(static_cast<double>(late.tracks[1].startDelay) / late.timescale, 10.01, 0.011);
}

TEST(Plan, standsAnyNumbers) {
  Part odd = part({video(1), sound(1), telemetry(1)});
  const std::uint32_t largest = 0xFFFFFFFF;
  odd.movie.tracks[0].samples = {{0, largest, largest, 0, false}};
  odd.movie.tracks[0].samples.append({std::uint64_t{1} << 62U, largest, largest, 0, true}, largest);
  odd.movie.tracks[1].timescale = 0;
  odd.movie.tracks[2].mediaStart = std::numeric_limits<std::int64_t>::min();
  odd.movie.timescale = 0;
  const Plan joined = plan(std::vector<Part>(5, odd));
  EXPECT_EQ(joined.movie.tracks[0].samples.size(), 5 * (std::uint64_t{largest} + 1));
  EXPECT_EQ(plan({}).ranges.size(), 0U);
}

}  // namespace
}  // namespace tallowmark::ClipJoin
