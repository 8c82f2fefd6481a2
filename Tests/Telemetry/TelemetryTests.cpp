// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Telemetry/KeyLengthValue.h"
#include "MediaKit/Telemetry/SideTracks.h"
#include "MediaKit/Telemetry/TelemetrySearch.h"
#include "MediaKit/Telemetry/Timecode.h"
#include "Tests/Support/TelemetryTrees.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::deviceTree;
using testing::item;

Bytes changed(Bytes bytes, std::size_t at, std::uint8_t value) {
  bytes.at(at) = value;
  return bytes;
}

Bytes operator+(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

TEST(KeyLengthValue, isCheckedToItsLastByte) {
  const Bytes tree = deviceTree(1);
  Bytes deep = item("ACCL", 's', 2, Bytes(4));
  for (int level = 0; level < 9; ++level) deep = item("STRM", 0, 1, deep);
  const struct {
    const char* what;
    Bytes bytes;
    bool isTree;
  } cases[] = {
      {"whole", tree, true},
      {"padded values", item("DEVC", 0, 1, item("DVNM", 'c', 1, Bytes(5, 'x'))), true},
      {"cut by a byte", Bytes(tree.begin(), tree.end() - 1), false},
      {"with a byte behind", tree + Bytes(1), false},
      {"another key", changed(tree, 3, 'X'), false},
      {"a key that is no text", changed(tree, 8, 0), false},
      {"an unknown type", changed(tree, 12, 'x'), false},
      {"a value size that no number of the type fills",
       item("DEVC", 0, 1, item("ACCL", 's', 3, Bytes(12))), false},
      {"an item longer than its stream", changed(tree, 37, 7), false},
      {"an item shorter than its stream", changed(tree, 37, 5), false},
      {"a hole in the middle of the heads", changed(tree, 33, 0), false},
      {"nothing in it", item("DEVC", 0, 1, {}), false},
      {"deeper than any camera", item("DEVC", 0, 1, deep), false},
      {"no head", {'D', 'E', 'V'}, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(isTelemetryTree(c.bytes), c.isTree) << c.what;
  }
}

TEST(TelemetrySearch, findsTreesBetweenOtherBytes) {
  const Bytes a = deviceTree(1);
  const Bytes b = deviceTree(2, 40);
  Bytes broken = deviceTree(3);
  broken[33] = 0;
  const Bytes noise(300000, 'D');
  const Bytes file = noise + a + b + broken + Bytes{'D', 'E', 'V'} + b;
  const MemorySource source(file);
  const std::uint64_t first = noise.size();
  const std::uint64_t second = first + a.size();
  const std::uint64_t last = file.size() - b.size();
  TelemetrySearch search(source);
  const auto starts = [&](const ByteRange& stretch, std::uint64_t reach) {
    std::vector<std::uint64_t> found;
    for (const ByteRange& tree : search.in(stretch, reach)) found.push_back(tree.lower);
    return found;
  };
  using Starts = std::vector<std::uint64_t>;
  EXPECT_EQ(starts({0, file.size()}, file.size()), (Starts{first, second, last}));
  // What begins in the stretch may end behind it, but not behind the reach.
  EXPECT_EQ(starts({0, first + 1}, file.size()), Starts{first});
  EXPECT_EQ(starts({0, first}, file.size()), Starts{});
  EXPECT_EQ(starts({0, file.size()}, second + b.size() - 1), Starts{first});
}

// An opening may lie across the ends of what is read at once.
TEST(TelemetrySearch, findsATreeWhereverReadsEnd) {
  const Bytes tree = deviceTree(1);
  for (const std::size_t end : {4U << 10U, 12U << 10U, 28U << 10U, 508U << 10U}) {
    for (std::size_t at = end - 5; at < end + 3; ++at) {
      const MemorySource source(Bytes(at, 'x') + tree + Bytes(100, 'y'));
      const std::vector<ByteRange> found{{at, at + tree.size()}};
      EXPECT_EQ(TelemetrySearch(source).in({0, source.size()}, source.size()), found) << at;
    }
  }
}

// Thousands of heads that claim all that follows must not cost a read of it each.
TEST(TelemetrySearch, givesUpWhatIsMadeToBeSlow) {
  Bytes file;
  const Bytes head{'D', 'E', 'V', 'C', 0, 255, 0xFF, 0xFF};
  while (file.size() < (std::size_t{32} << 20U)) file.insert(file.end(), head.begin(), head.end());
  const MemorySource source(file);
  EXPECT_TRUE(TelemetrySearch(source).in({0, file.size()}, file.size()).empty());
}

/// A movie of one side track with these samples, one behind the other in the file.
struct SideClip {
  Bytes file;
  Movie movie;

  SideClip(const char* codec, const std::vector<Bytes>& samples) {
    Track track;
    track.codec = codec;
    for (const Bytes& sample : samples) {
      track.samples.append({.offset = file.size(),
                            .size = static_cast<std::uint32_t>(sample.size()),
                            .duration = 1});
      file.insert(file.end(), sample.begin(), sample.end());
    }
    movie.tracks = {track};
  }
  BytesByTrack tell(const Bytes& stretch) const {
    const MemorySource teacher(file);
    const MemorySource source(stretch);
    MediaWindow window(source, source.size(), {64, 4096});
    BytesByTrack found;
    addSideTracksIn({0, stretch.size()}, window, SideTrackHabit::learn(movie, teacher), found);
    return found;
  }
};

TEST(SideTracks, areToldByHowTheirSamplesLook) {
  const Bytes metadata{0, 0, 0, 12, 0, 0, 0, 2, 1, 2, 3, 4};
  const Bytes longer{0, 0, 0, 10, 0, 0, 0, 3, 9, 9};
  const SideClip items("mebx", {metadata, metadata + longer});
  EXPECT_EQ(items.tell(longer + metadata + metadata), (BytesByTrack{{"mebx", 34}}));
  EXPECT_EQ(items.tell(metadata + Bytes{1, 2, 3}), (BytesByTrack{{"mebx", 12}}));

  const SideClip records("fdsc", {Bytes{'G', 'P', 1} + Bytes(13), Bytes{'G', 'P', 2} + Bytes(13)});
  const Bytes record = Bytes{'G', 'P', 7} + Bytes(13, 5);
  EXPECT_EQ(records.tell(record + record), (BytesByTrack{{"fdsc", 32}}));
  EXPECT_EQ(records.tell(Bytes(16, 'x')), BytesByTrack{});

  std::vector<Bytes> motion;
  for (std::uint8_t i = 0; i < 12; ++i) motion.push_back(Bytes{10, 8, i} + Bytes(50U + i, i));
  const SideClip messages("mett", motion);
  EXPECT_EQ(messages.tell(Bytes{10, 8, 99} + Bytes(90, 1)), (BytesByTrack{{"mett", 93}}));
  EXPECT_EQ(messages.tell(Bytes{10, 8, 99} + Bytes(900, 1)), BytesByTrack{});
}

TEST(TimecodePlace, believesAValueOnlyWhereTheReferenceHasIt) {
  TimecodePlace place;
  place.pictures = 1;
  place.distanceBehind = 4;
  place.distanceAhead = 2;
  place.ahead = {'T', 'C', 0, 4};
  place.aheadSize = 4;
  place.framesPerDay = 2592000;
  const Bytes good{'T', 'C', 0, 4, 0, 0x12, 0x7A, 0x98, 'A', 'B'};
  const ByteRange sound{10, 20};
  const struct {
    const char* what;
    Bytes gap;
    std::uint64_t pictures;
    std::vector<ByteRange> known;
    std::optional<std::uint64_t> found;
  } cases[] = {
      {"as it should be", good, 1, {}, 4},
      {"with another number", changed(good, 7, 1), 1, {}, 4},
      {"ahead of sound", good + Bytes(10), 1, {sound}, 4},
      {"behind sound", Bytes(10) + Bytes(10) + good, 1, {{0, 20}}, 24},
      {"behind another picture", good, 2, {}, std::nullopt},
      {"later than a day", changed(good, 4, 0x10), 1, {}, std::nullopt},
      {"behind other bytes", changed(changed(good, 0, 'x'), 1, 'x'), 1, {}, std::nullopt},
      {"farther from what follows", good + Bytes(1), 1, {}, std::nullopt},
  };
  for (const auto& c : cases) {
    const MemorySource source(c.gap);
    EXPECT_EQ(place.find(source, {0, c.gap.size()}, c.known, c.pictures), c.found) << c.what;
  }
}

}  // namespace
}  // namespace tallowmark
