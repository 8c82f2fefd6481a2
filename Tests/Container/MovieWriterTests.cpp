// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/MovieWriter.h"

#include <gtest/gtest.h>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "SampleText.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark {
namespace {

using namespace testing;

Movie movieOf(SampleList samples) {
  Movie movie;
  Track& track = movie.tracks.emplace_back();
  track.trackID = 1;
  track.kind = Track::Kind::video;
  track.handler = "vide";
  track.timescale = 1000;
  track.codec = "avc1";
  track.sampleEntry = makeBox("avc1", {zeros(8)});
  track.samples = std::move(samples);
  return movie;
}

Movie reread(const Movie& movie) {
  const MemorySource source(joined({makeBox("ftyp", {}), MovieWriter::moov(movie)}));
  return MovieParser::parse(BoxReader(source));
}

/// The payload of a sample table of the first track; nothing when there is no such table.
std::optional<Bytes> tableOf(const Movie& movie, FourCC type) {
  const MemorySource source(MovieWriter::moov(movie));
  const BoxReader reader(source);
  const std::vector<FourCC> path{"trak", "mdia", "minf", "stbl", type};
  const auto table = MovieParser::find(path, *reader.box(0), reader);
  return table ? std::optional(reader.payload(*table)) : std::nullopt;
}

TEST(MovieWriters, writeTablesOnlyWhereTheyAreNeeded) {
  const Movie plain = movieOf({{0, 5, 1, 0, true}, {5, 5, 1, 0, true}, {10, 5, 2, 0, true}});
  EXPECT_EQ(tableOf(plain, "ctts"), std::nullopt);
  EXPECT_EQ(tableOf(plain, "stss"), std::nullopt);
  EXPECT_EQ(tableOf(plain, "stsz"), joined({u32(0), u32(5), u32(3)}));
  EXPECT_EQ(tableOf(plain, "stts"), joined({u32(0), u32(2), u32(2), u32(1), u32(1), u32(2)}));

  Movie reordered = movieOf({{0, 5, 1, 0, true}, {5, 6, 1, -3, false}});
  EXPECT_EQ(tableOf(reordered, "ctts"),
            joined({u32(1U << 24U), u32(2), u32(1), u32(0), u32(1), u32(0xFFFFFFFD)}));
  EXPECT_EQ(tableOf(reordered, "stss"), joined({u32(0), u32(1), u32(1)}));
  reordered.tracks[0].kind = Track::Kind::audio;
  EXPECT_EQ(tableOf(reordered, "stss"), std::nullopt);
}

TEST(MovieWriters, startChunksAtGapsAndAfter4096Samples) {
  SampleList samples;
  samples.append({.offset = 0, .size = 2, .duration = 1, .isSync = true}, 4096 * 2 + 10);
  samples.append({.offset = 20'000, .size = 2, .duration = 1, .isSync = true}, 10);
  const Movie movie = movieOf(samples);
  EXPECT_EQ(tableOf(movie, "co64"),
            joined({u32(0), u32(4), u64(0), u64(8192), u64(16384), u64(20'000)}));
  EXPECT_EQ(tableOf(movie, "stsc"),
            joined({u32(0), u32(2), u32(1), u32(4096), u32(1), u32(3), u32(10), u32(1)}));
  EXPECT_EQ(reread(movie).tracks[0].samples, samples);
}

TEST(MovieWriters, giveBackEverythingThatTheParserReads) {
  Movie movie = movieOf({{100, 5, 40, 80, true}, {200, 7, 41, -40, false}, {300, 7, 41, 0, true}});
  movie.timescale = 90'000;
  movie.creationTime = 1ULL << 33U;
  movie.userData = makeBox("udta", {makeBox(FourCC(0xA978797AU), {text("+48.1+011.5/")})});
  movie.metadata = makeBox("meta", {zeros(4), makeBox("keys", {zeros(8)})});
  Track& video = movie.tracks[0];
  video.width = 1920.5;
  video.height = 1080;
  video.language = 0x15C7;
  video.mediaStart = 1001;
  video.startDelay = 12;
  video.matrix = {0, 0x10000, 0, 0xFFFF0000, 0, 0, 0x4380000, 0, 0x40000000};
  video.layer = 0xFFFF;
  video.alternateGroup = 3;
  video.extraBoxes = {makeBox("tref", {makeBox("cdsc", {u32(2)})}), makeBox("tapt", {zeros(20)})};
  Track& other = movie.tracks.emplace_back();
  other.trackID = 7;
  other.handler = "tmcd";
  other.timescale = 30;
  other.mediaHeader = makeBox("gmhd", {makeBox("gmin", {zeros(16)})});
  other.samples = {{50, 4, 300, 0, true}};

  const Movie again = reread(movie);
  EXPECT_EQ(again.timescale, movie.timescale);
  EXPECT_EQ(again.creationTime, movie.creationTime);
  EXPECT_EQ(again.userData, movie.userData);
  EXPECT_EQ(again.metadata, movie.metadata);
  ASSERT_EQ(again.tracks.size(), 2U);
  for (std::size_t i = 0; i < 2; ++i) {
    const Track& before = movie.tracks[i];
    const Track& after = again.tracks[i];
    EXPECT_EQ(after.trackID, before.trackID);
    EXPECT_EQ(after.kind, before.kind);
    EXPECT_EQ(after.handler, before.handler);
    EXPECT_EQ(after.timescale, before.timescale);
    EXPECT_EQ(after.sampleEntry, before.sampleEntry);
    EXPECT_EQ(after.width, before.width);
    EXPECT_EQ(after.height, before.height);
    EXPECT_EQ(after.language, before.language);
    EXPECT_EQ(after.mediaStart, before.mediaStart);
    EXPECT_EQ(after.startDelay, before.startDelay);
    EXPECT_EQ(after.matrix, before.matrix);
    EXPECT_EQ(after.layer, before.layer);
    EXPECT_EQ(after.alternateGroup, before.alternateGroup);
    EXPECT_EQ(after.extraBoxes, before.extraBoxes);
    EXPECT_EQ(textOf(after.samples), textOf(before.samples));
  }
  EXPECT_EQ(again.tracks[1].mediaHeader, other.mediaHeader);
}

// A box that claims more than its parent holds, or "all that is left", would swallow what the copy
// has behind it.
TEST(MovieWriters, giveCarriedBoxesTheSizeTheyHave) {
  for (const std::uint32_t claimed : {0U, 5000U}) {
    SCOPED_TRACE(claimed);
    const Bytes userData = joined({u32(claimed), text("udta"), zeros(8)});
    const Bytes entry = joined({u32(claimed), text("avc1"), zeros(8)});
    const Bytes moov =
        makeBox("moov", {makeTrack("vide", {makeFull("stsd", 0, {u32(1), entry})}), userData});
    const MemorySource source(joined({makeBox("ftyp", {}), moov}));
    Movie movie = MovieParser::parse(BoxReader(source));
    EXPECT_EQ(movie.userData, makeBox("udta", {zeros(8)}));
    EXPECT_EQ(movie.tracks.at(0).sampleEntry, makeBox("avc1", {zeros(8)}));
    movie.metadata = makeBox("meta", {zeros(4)});
    EXPECT_EQ(reread(movie).metadata, movie.metadata);
  }
}

class WrittenFiles : public ::testing::Test {
 protected:
  TemporaryFolder folder;
  std::filesystem::path target = folder / "copy.mov";
};

TEST_F(WrittenFiles, carryTheRangeAndPointIntoIt) {
  Bytes media(2000);
  for (std::size_t i = 0; i < media.size(); ++i) media[i] = static_cast<std::uint8_t>(i * 7 / 3);
  const MemorySource source(media);
  std::vector<double> steps;
  {
    FileSink sink(target.string());
    MovieWriter::write(movieOf({{1500, 100, 1, 0, true}}), source, {1000, 1900}, sink,
                       [&](double done) { steps.push_back(done); });
  }
  const Bytes file = contentsOf(target);
  EXPECT_EQ(Bytes(file.begin(), file.begin() + 32), MovieWriter::defaultFileType());
  EXPECT_TRUE(std::equal(media.begin() + 1000, media.begin() + 1900, file.begin() + 40));
  EXPECT_EQ(steps, std::vector<double>{1});
  const FileSource written(target.string());
  EXPECT_EQ(textOf(MovieParser::parse(BoxReader(written)).tracks.at(0).samples), "540+100/1K");
}

TEST_F(WrittenFiles, fromASourceTooShortAreAnError) {
  const MemorySource source(zeros(100));
  FileSink sink(target.string());
  try {
    MovieWriter::write(movieOf({{0, 50, 1, 0, true}}), source, {0, 101}, sink);
    ADD_FAILURE();
  } catch (const MediaError& error) {
    EXPECT_EQ(error.detail(), "the file ended early");
  }
}

TEST_F(WrittenFiles, switchToTheWideHeaderJustBelowFourGibibytes) {
  writeFile(folder / "sparse", {});
  std::filesystem::resize_file(folder / "sparse", 5ULL << 30U);
  const FileSource source((folder / "sparse").string());
  const struct {
    std::uint64_t total;
    Bytes header;
  } rows[] = {{4'294'967'279, joined({u32(4'294'967'287), text("mdat")})},
              {4'294'967'280, joined({u32(1), text("mdat"), u64(4'294'967'296)})},
              {5ULL << 30U, joined({u32(1), text("mdat"), u64((5ULL << 30U) + 16)})}};
  for (const auto& [total, header] : rows) {
    StopSource stop;
    FileSink sink(target.string());
    // The head tells; the gigabytes need not follow.
    EXPECT_THROW(MovieWriter::write(
                     movieOf({{0, 50, 1, 0, true}}), source, {0, total}, sink,
                     [&](double) { stop.requestStop(); }, stop.token()),
                 Stopped);
    const FileSource written(target.string());
    EXPECT_EQ(written.read(32, header.size()), header) << total;
  }
}

}  // namespace
}  // namespace tallowmark
