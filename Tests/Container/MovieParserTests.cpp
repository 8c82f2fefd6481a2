// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/MovieParser.h"

#include <gtest/gtest.h>

#include "MediaKit/Container/MediaError.h"
#include "SampleText.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark {
namespace {

using namespace testing;

Movie parsed(const Bytes& file) {
  const MemorySource source(file);
  return MovieParser::parse(BoxReader(source));
}

Bytes fileOf(std::initializer_list<Bytes> moovChildren) {
  return joined({makeBox("ftyp", {text("isom")}), makeBox("moov", moovChildren)});
}

Track trackOf(std::initializer_list<Bytes> tables, std::initializer_list<Bytes> more = {}) {
  return parsed(fileOf({makeTrack("vide", tables, more)})).tracks.at(0);
}

TEST(Layouts, areTheReadablePrefixOfTheTopLevel) {
  const Bytes ftyp = makeBox("ftyp", {text("isom")});
  const Bytes moov = makeBox("moov", {});
  const Bytes mdat = makeBox("mdat", {zeros(20)});
  const Bytes openMdat = joined({u32(0), text("mdat"), zeros(20)});
  const Bytes longMdat = joined({u32(9999), text("mdat"), zeros(20)});
  const Bytes longMoov = joined({u32(9999), text("moov"), zeros(20)});
  const struct {
    const char* label;
    Bytes file;
    bool isMovie, hasFileType, hasIndex;
    std::size_t mdats;
    bool lastTruncated;
  } rows[] = {
      {"four bytes", zeros(4), false, false, false, 0, false},
      {"noise", Bytes(100, 7), false, false, false, 0, false},
      {"only free space", makeBox("free", {zeros(9)}), false, false, false, 0, false},
      {"only a file type", ftyp, true, true, false, 0, false},
      {"open mdat first", openMdat, true, false, false, 1, false},
      {"index, then mdat cut short", joined({ftyp, moov, longMdat}), true, true, true, 1, true},
      {"mdat hides what follows", joined({ftyp, longMdat, moov}), true, true, false, 1, true},
      {"zeros end the walk", joined({ftyp, zeros(8), moov}), true, true, false, 0, false},
      {"index cut short", joined({ftyp, mdat, longMoov}), true, true, false, 1, false},
      {"two mdats, free between", joined({ftyp, mdat, makeBox("free", {}), mdat, moov}), true, true,
       true, 2, false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    const MemorySource source(row.file);
    const BoxReader reader(source);
    if (!row.isMovie) {
      EXPECT_THROW(MovieParser::layout(reader), MediaError);
      continue;
    }
    const FileLayout layout = MovieParser::layout(reader);
    EXPECT_EQ(layout.ftyp.has_value(), row.hasFileType);
    EXPECT_EQ(layout.moov.has_value(), row.hasIndex);
    EXPECT_EQ(layout.mdats.size(), row.mdats);
    EXPECT_EQ(!layout.mdats.empty() && layout.mdats.back().truncated, row.lastTruncated);
    EXPECT_EQ(layout.fileSize, row.file.size());
    if (!row.hasIndex) {
      EXPECT_THROW(MovieParser::parse(reader), MediaError);
    }
  }
}

TEST(SampleTables, expandAsTheStandardSays) {
  const Bytes fiveSizes = makeTable("stsz", 0, {5, 10, 11, 12, 13, 14});
  const auto equal = [](std::uint32_t size, std::uint32_t count) {
    return makeTable("stsz", size, {count});
  };
  const Bytes oneChunk = makeTable("stco", 1, {100});
  const Bytes allInOne = makeTable("stsc", 1, {1, 99, 1});
  const struct {
    const char* label;
    Bytes tables;
    const char* samples;
  } rows[] = {
      {"durations padded with the last",
       joined({fiveSizes, makeTable("stts", 1, {3, 1001}), allInOne, oneChunk}),
       "100+10/1001K 110+11/1001K 121+12/1001K 133+13/1001K 146+14/1001K"},
      {"no durations", joined({equal(4, 3), allInOne, oneChunk}), "100+4/1K 104+4/1K 108+4/1K"},
      {"durations of empty runs",
       joined({equal(4, 2), makeTable("stts", 2, {0, 9, 1, 7}), allInOne, oneChunk}),
       "100+4/7K 104+4/7K"},
      {"samples per chunk",
       joined({equal(1, 6), makeTable("stsc", 2, {1, 2, 1, 3, 1, 1}),
               makeTable("stco", 4, {10, 20, 30, 40})}),
       "10+1/1K 11+1/1K 20+1/1K 21+1/1K 30+1/1K 40+1/1K"},
      {"no samples per chunk", joined({equal(1, 9), makeTable("stco", 2, {10, 20})}),
       "10+1/1K 20+1/1K"},
      {"entries out of order: the last in the table that applies",
       joined(
           {equal(1, 9), makeTable("stsc", 2, {2, 3, 1, 1, 1, 1}), makeTable("stco", 2, {10, 20})}),
       "10+1/1K 20+1/1K"},
      {"chunks of nothing", joined({equal(1, 9), makeTable("stsc", 1, {1, 0, 1}), oneChunk}), ""},
      {"chunks hold less", joined({equal(1, 10), makeTable("stsc", 1, {1, 2, 1}), oneChunk}),
       "100+1/1K 101+1/1K"},
      {"composition offsets, shorter than the track",
       joined({equal(1, 3), makeTable("ctts", 2, {1, 5, 1, 0xFFFFFFFE}), allInOne, oneChunk}),
       "100+1/1@5K 101+1/1@-2K 102+1/1K"},
      {"key samples", joined({equal(1, 4), makeTable("stss", 2, {3, 1}), allInOne, oneChunk}),
       "100+1/1K 101+1/1 102+1/1K 103+1/1"},
      {"no key sample", joined({equal(1, 2), makeTable("stss", 0, {}), allInOne, oneChunk}),
       "100+1/1 101+1/1"},
      {"wide offsets", joined({equal(1, 1), makeTable("co64", 1, {1, 5})}), "4294967301+1/1K"},
      {"the later of two tables", joined({equal(1, 9), equal(2, 1), allInOne, oneChunk}),
       "100+2/1K"},
      {"no sizes", joined({allInOne, oneChunk}), ""},
      {"no chunks", joined({fiveSizes, allInOne}), ""},
      {"counts that lie",
       joined({makeTable("stsz", 0, {~0U, 7, 8}), makeTable("stts", ~0U, {1, 3}),
               makeTable("stsc", ~0U, {1, ~0U, 1}), makeTable("stco", ~0U, {5}),
               makeTable("ctts", ~0U, {}), makeTable("stss", ~0U, {1})}),
       "5+7/3K 12+8/3"},
      {"tables of four bytes", joined({makeBox("stsz", {u32(0)}), makeBox("stco", {u32(0)})}), ""},
  };
  for (const auto& row : rows)
    EXPECT_EQ(textOf(trackOf({row.tables}).samples), row.samples) << row.label;
}

TEST(SampleTables, thatClaimBillionsCostNothing) {
  const Track track =
      trackOf({makeTable("stsz", ~0U, {~0U}), makeTable("stts", 1, {~0U, ~0U}),
               makeTable("stsc", 1, {1, ~0U, 1}), makeTable("co64", 2, {~0U, ~0U, 0, 100})});
  EXPECT_EQ(track.samples.size(), ~0U);
  EXPECT_LE(track.samples.runs().size(), 2U);
  EXPECT_TRUE(track.samples.endingBy(1'000'000).empty());
}

TEST(EditLists, giveDelayAndStart) {
  const auto entry = [](std::uint32_t length, std::uint32_t start) {
    return joined({u32(length), u32(start), u32(0x10000)});
  };
  const struct {
    const char* label;
    Bytes list;
    std::uint64_t delay;
    std::int64_t start;
  } rows[] = {
      {"delay, then media", makeFull("elst", 0, {u32(2), entry(1200, ~0U), entry(5, 2002)}), 1200,
       2002},
      {"delay alone", makeFull("elst", 0, {u32(1), entry(1200, ~0U)}), 1200, 0},
      {"wide",
       makeFull("elst", 1,
                {u32(2), u64(7), u64(~0ULL), zeros(4), u64(1), u64(1ULL << 40U), zeros(4)}),
       7, std::int64_t{1} << 40U},
      {"entry cut", makeFull("elst", 0, {u32(2), entry(3, ~0U), zeros(11)}), 3, 0},
      {"empty", makeFull("elst", 0, {}), 0, 0},
      {"delays that overflow",
       makeFull("elst", 1,
                {u32(2), u64(~0ULL), u64(~0ULL), zeros(4), u64(9), u64(~0ULL), zeros(4)}),
       ~0ULL, 0},
  };
  for (const auto& row : rows) {
    const Track track = trackOf({}, {makeBox("edts", {row.list})});
    EXPECT_EQ(track.startDelay, row.delay) << row.label;
    EXPECT_EQ(track.mediaStart, row.start) << row.label;
  }
}

TEST(Movies, areReadInBothHeaderVersions) {
  const Bytes narrow = makeFull("mvhd", 0, {u32(11), u32(0), u32(1000)});
  const Bytes wide = makeFull("mvhd", 1, {u64(1ULL << 33U), u64(0), u32(90000)});
  EXPECT_EQ(parsed(fileOf({narrow})).creationTime, 11U);
  EXPECT_EQ(parsed(fileOf({narrow})).timescale, 1000U);
  EXPECT_EQ(parsed(fileOf({narrow, wide})).creationTime, 1ULL << 33U);
  EXPECT_EQ(parsed(fileOf({wide})).timescale, 90000U);
  const Movie bare = parsed(fileOf({}));
  EXPECT_EQ(bare.timescale, 600U);
  EXPECT_EQ(bare.creationTime, 0U);
  EXPECT_EQ(bare.fileType, makeBox("ftyp", {text("isom")}));
  EXPECT_EQ(bare.videoTrack(), nullptr);
}

TEST(Tracks, keepTheirOrderWithoutTheOnesThatCannotBeUnderstood) {
  const Bytes noTables = makeBox("trak", {makeFull("tkhd", 0, {zeros(80)}), makeBox("mdia", {})});
  const Movie movie = parsed(fileOf({makeTrack("soun", {makeSampleDescription("mp4a")}), noTables,
                                     makeTrack("meta", {}), makeTrack("vide", {})}));
  ASSERT_EQ(movie.tracks.size(), 3U);
  EXPECT_EQ(movie.audioTrack(), &movie.tracks[0]);
  EXPECT_EQ(movie.tracks[0].codec, FourCC("mp4a"));
  EXPECT_EQ(movie.tracks[0].sampleEntry, makeBox("mp4a", {zeros(8)}));
  EXPECT_EQ(movie.tracks[1].kind, Track::Kind::other);
  EXPECT_EQ(movie.tracks[1].codec.description(), "????");
  const Track& video = *movie.videoTrack();
  EXPECT_EQ(video.width, 640);
  EXPECT_EQ(video.height, 480);
  EXPECT_EQ(video.timescale, 1000U);
  EXPECT_EQ(video.language, 0x55C4);
  EXPECT_EQ(video.matrix, unityMatrix);
}

TEST(Movies, lastAsLongAsTheirLongestTrack) {
  Movie movie;
  movie.tracks.resize(2);
  movie.tracks[0].timescale = 30'000;
  movie.tracks[0].samples.append({.offset = 0, .size = 1, .duration = 1001}, 300);
  movie.tracks[1].timescale = 48'000;
  movie.tracks[1].samples.append({.offset = 0, .size = 1, .duration = 1}, 480'000);
  EXPECT_DOUBLE_EQ(movie.seconds(), 10.01);
}

}  // namespace
}  // namespace tallowmark
