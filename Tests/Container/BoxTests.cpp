// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/Box.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FailingSource.h"
#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/BoxWriter.h"
#include "MediaKit/Container/NameSearch.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark {
namespace {

using namespace testing;

TEST(FourCCs, holdTheirFirstCharacterOnTop) {
  EXPECT_EQ(FourCC("moov").value, 0x6D6F6F76U);
  EXPECT_EQ(FourCC("ab").value, 0x6162U);
  EXPECT_EQ(FourCC("").value, 0U);
  EXPECT_EQ(FourCC("moov").description(), "moov");
  EXPECT_EQ(FourCC(0xA96E616DU).description(), "©nam");
  const struct {
    std::uint32_t code;
    bool plausible;
  } rows[] = {{0x6D6F6F76, true},  {0xA96E616D, true},  {0x20202020, true},  {0x7E7E7E7E, true},
              {0x6D6F6F1F, false}, {0x7F6F6F76, false}, {0x806F6F76, false}, {0, false}};
  for (const auto& [code, plausible] : rows) EXPECT_EQ(FourCC(code).isPlausible(), plausible);
}

TEST(BoxHeaders, areReadWithoutTrust) {
  const Bytes wide = joined({u32(1), text("mdat"), u64(16)});
  const auto compact = [](std::uint32_t size) { return joined({u32(size), text("free")}); };
  const struct {
    const char* label;
    Bytes bytes;
    std::size_t sourceSize;
    std::uint64_t offset;
    std::optional<Box> expected;
  } rows[] = {
      {"size 0 runs to the end", joined({zeros(100), compact(0)}), 1000, 100,
       Box{"free", 100, 8, 900, false}},
      {"wide size 16 is empty", wide, 1000, 0, Box{"mdat", 0, 16, 16, false}},
      {"wide size 15", joined({u32(1), text("mdat"), u64(15)}), 1000, 0, {}},
      {"wide size past everything", joined({u32(1), text("mdat"), u64(~0ULL)}), 1000, 0,
       Box{"mdat", 0, 16, 1000, true}},
      {"wide header cut", wide, 15, 0, {}},
      {"compact size 8 is empty", compact(8), 1000, 0, Box{"free", 0, 8, 8, false}},
      {"compact size 7", compact(7), 1000, 0, {}},
      {"compact size 2", compact(2), 1000, 0, {}},
      {"past the end", compact(5000), 3000, 0, Box{"free", 0, 8, 3000, true}},
      {"seven bytes left", zeros(100), 100, 93, {}},
      {"offset near 2^64", zeros(100), 100, ~0ULL - 3, {}},
      {"type of noise", joined({u32(100), u32(0x01020304)}), 1000, 0, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.label);
    Bytes bytes = row.bytes;
    bytes.resize(row.sourceSize);
    const MemorySource source(bytes);
    EXPECT_EQ(BoxReader(source).box(row.offset), row.expected);
  }
}

TEST(BoxScans, endWithTheGoodPrefix) {
  const MemorySource source(joined({makeBox("free", {zeros(4)}), makeBox("wide", {}), u32(500),
                                    text("skip"), zeros(20), makeBox("free", {})}));
  const BoxReader reader(source);
  const auto boxes = reader.children(0, source.size());
  ASSERT_EQ(boxes.size(), 3U);
  EXPECT_EQ(boxes[1], (Box{"wide", 12, 8, 8, false}));
  EXPECT_TRUE(boxes[2].truncated);
  EXPECT_TRUE(reader.children(boxes[0], 5).empty());
  EXPECT_TRUE(reader.children(50, 10).empty());
}

TEST(BoxScans, passReadFailuresOn) {
  const FailingSource source(joined({makeBox("free", {zeros(100)}), zeros(100)}), {{108, 120}});
  EXPECT_THROW(BoxReader(source).children(0, source.size()), DeviceError);
}

TEST(BoxScans, stayBoundedInAFileOfNothingButHeaders) {
  Bytes bytes;
  const Bytes header = makeBox("free", {});
  for (int i = 0; i < 3'000'000; ++i) bytes.insert(bytes.end(), header.begin(), header.end());
  const MemorySource source(std::move(bytes));
  EXPECT_LE(BoxReader(source).children(0, source.size()).size(), 1U << 20U);
}

TEST(BoxPayloads, areRefusedFromHalfAGibibyteOn) {
  const MemorySource source(zeros(100));
  const BoxReader reader(source);
  Box box{"stsz", 0, 8, 8 + 536'870'911, false};
  EXPECT_EQ(reader.payload(box).size(), 92U);
  ++box.size;
  try {
    reader.payload(box);
    ADD_FAILURE();
  } catch (const MediaError& error) {
    EXPECT_STREQ(error.what(),
                 "The video file is damaged in a way Repair can't handle: stsz box is implausibly "
                 "large");
  }
}

TEST(BoxWriters, nestAndPutSizesInPlace) {
  BoxWriter writer;
  writer.box("moov", [](BoxWriter& moov) {
    moov.full("mvhd", 1, 0xFF000007, [](BoxWriter& box) { box.u16(0x0102); });
    moov.u8(9);
  });
  EXPECT_EQ(writer.data(), joined({u32(23), text("moov"), u32(14), text("mvhd"), u32(0x01000007),
                                   u16(0x0102), Bytes{9}}));
}

// Everywhere in the first strides of the search, at the ends of pieces that are read at once, and
// among letters that are nearly the name.
TEST(NameSearch, findsANameWhereverItStands) {
  const std::string name = "mdat";
  const auto placesIn = [&](const Bytes& bytes, std::uint64_t from, std::uint64_t to) {
    std::vector<std::uint64_t> places;
    visitNames({name}, MemorySource(bytes), from, to, [&](std::uint64_t place) {
      places.push_back(place);
      return true;
    });
    return places;
  };
  using Places = std::vector<std::uint64_t>;
  std::vector<std::size_t> starts(200);
  std::iota(starts.begin(), starts.end(), 0);
  for (std::size_t at = 4080; at < 4110; ++at) starts.push_back(at);
  for (const std::size_t at : starts) {
    Bytes bytes;
    while (bytes.size() < at + 4 + at % 80) bytes.insert(bytes.end(), {'m', 'd', 'd', 't'});
    std::copy(name.begin(), name.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
    EXPECT_EQ(placesIn(bytes, 0, bytes.size()), Places{at});
    EXPECT_EQ(placesIn(bytes, at, at + 4), Places{at});
    EXPECT_EQ(placesIn(bytes, at + 1, bytes.size()), Places{}) << at;
    EXPECT_EQ(placesIn(bytes, 0, at + 3), Places{}) << at;
  }
  Bytes many;
  for (int i = 0; i < 3000; ++i) many.insert(many.end(), name.begin(), name.end());
  EXPECT_EQ(placesIn(many, 0, many.size()).size(), 3000U);
}

}  // namespace
}  // namespace tallowmark
