// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "JPEGCoefficients.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/JPEGRepair.h"
#include "MediaKit/Photo/RebuiltPicture.h"
#include "MediaKit/Photo/SegmentSalvage.h"
#include "Photos.h"

namespace tallowmark::testing {
namespace {

using namespace JPEGRepair;
using Borrowed = std::vector<std::string>;
using Fix = Result::Fix;

const char* const askForReference =
    "This photo's header is damaged. Add a good photo taken on the same camera with the same "
    "settings, and Repair will rebuild it.";

std::string failureOf(const Bytes& data, std::optional<ByteView> reference = std::nullopt) {
  try {
    (void)repair(data, reference);
  } catch (const MediaError& error) {
    return error.what();
  }
  return "no failure";
}

std::size_t scanOf(const Bytes& photo) {
  return parseHeader(photo)->sos.offset;
}

std::size_t segmentOf(const Bytes& photo, std::uint8_t marker) {
  const Header header = parseHeader(photo).value();
  for (const Segment& segment : header.segments) {
    if (segment.marker == marker) return segment.offset;
  }
  throw std::runtime_error("no such segment");
}

/// The photo with a maker note in front that holds a whole JPEG.
Bytes withMakerNote(const Bytes& photo, const Bytes& inner) {
  return joined({soi, segment(0xE1, joined({Bytes(700, 0x20), inner, Bytes(300, 0x20)})),
                 Bytes(photo.begin() + 2, photo.end())});
}

TEST(Repair, leavesAHealthyPhotoAsItIs) {
  const Bytes photo = joined({makePhoto({}), Bytes(28, 0x11)});
  const Repaired repaired = repair(photo, makePhoto({.variant = 1}));
  EXPECT_EQ(repaired.bytes, photo);
  EXPECT_EQ(repaired.result, (Result{Fix::none, 200, 150, {}, false}));
}

TEST(StrayMarkers, becomeWhatTheyWere) {
  for (const unsigned interval : {0U, 5U}) {
    for (const bool progressive : {false, true}) {
      const Bytes photo = makePhoto({.progressive = progressive, .restartInterval = interval});
      Bytes damaged = photo;
      std::vector<std::size_t> places;
      for (std::size_t at = parseHeader(photo)->scanStart; at + 2 < photo.size(); ++at) {
        const bool isData = photo[at + 1] == 0 || (photo[at + 1] & 0xF8U) == 0xD0U;
        if (photo[at] == 0xFF && isData) places.push_back(at + 1);
      }
      ASSERT_GE(places.size(), 4U);
      damaged[places[places.size() / 4]] = 0xF7;
      damaged[places[places.size() / 2]] = 0x80;
      EXPECT_EQ(diagnose(damaged), Diagnosis::truncated);
      const Repaired repaired = repair(damaged, std::nullopt);
      EXPECT_EQ(repaired.bytes, photo) << interval << " " << progressive;
      EXPECT_EQ(repaired.result, (Result{Fix::closedEnd, 200, 150, {}, false}));
    }
  }
  Bytes rubble = makePhoto({});
  for (std::size_t at = scanOf(rubble) + 20; at + 40 < rubble.size(); at += 40) {
    rubble[at] = 0xFF;
    rubble[at + 1] = 0xF7;
  }
  EXPECT_EQ(diagnose(rubble), Diagnosis::truncated);
  EXPECT_LT(repair(rubble, std::nullopt).bytes.size(), scanOf(rubble) + 60) << "nothing to follow";
}

TEST(ForeignData, goesAndTheRowsInFrontOfItStay) {
  const Bytes other = makePhoto({.width = 400, .height = 300, .variant = 9});
  const Bytes tails[] = {other, joined({other, {7}}), Bytes(other.begin(), other.end() - 500),
                         wiped(Bytes(9000), 8999, 4), markerNoise(9000, 3)};
  for (const bool progressive : {false, true}) {
    for (const unsigned interval : {0U, 5U}) {
      const Bytes photo = makePhoto(
          {.width = 400, .height = 300, .progressive = progressive, .restartInterval = interval});
      const auto half = photo.begin() + static_cast<std::ptrdiff_t>(photo.size() / 2);
      for (const Bytes& tail : tails) {
        SCOPED_TRACE(std::to_string(&tail - tails) + " " + std::to_string(interval));
        const Bytes damaged = joined({Bytes(photo.begin(), half), tail});
        EXPECT_EQ(diagnose(damaged), Diagnosis::truncated);
        const Repaired repaired = repair(damaged, std::nullopt);
        EXPECT_EQ(repaired.result, (Result{Fix::closedEnd, 400, 300, {}, true}));
        const Coefficients found = readCoefficients(repaired.bytes);
        ASSERT_FALSE(found.planes.empty()) << "does not open";
        EXPECT_GE(equalTopShare(found, readCoefficients(photo)), progressive ? 0 : 0.35);
      }
    }
  }
}

TEST(ForeignData, isNotTakenForThePhotoThatLostItsHeader) {
  const Bytes photo = makePhoto({.width = 400, .height = 300});
  const auto half = photo.begin() + static_cast<std::ptrdiff_t>(photo.size() / 2);
  const Bytes headless = wiped(Bytes(photo.begin(), half), scanOf(photo), 7);
  const Bytes damaged = joined({headless, makePhoto({.width = 640, .height = 480})});
  const Repaired repaired = repair(damaged, makePhoto({.width = 400, .height = 300, .variant = 1}));
  EXPECT_EQ(repaired.result.width, 400);
  EXPECT_TRUE(repaired.result.incomplete);
  EXPECT_GE(equalTopShare(readCoefficients(repaired.bytes), readCoefficients(photo)), 0.35);
}

TEST(Noise, costsNoMoreThanItCovers) {
  for (const unsigned interval : {5U, 50U}) {
    const Bytes photo = makePhoto({.width = 800, .height = 600, .restartInterval = interval});
    const auto half = static_cast<std::ptrdiff_t>(photo.size() / 2);
    const Coefficients whole = readCoefficients(photo);
    for (const unsigned seed : {1U, 2U, 3U}) {
      SCOPED_TRACE(std::to_string(interval) + " " + std::to_string(seed));
      const Bytes noise = wiped(Bytes(4096), 4096, seed);
      Bytes damaged = photo;
      std::copy(noise.begin(), noise.end(), damaged.begin() + half);
      const Repaired repaired = repair(damaged, std::nullopt);
      EXPECT_EQ(repaired.result, (Result{Fix::closedEnd, 800, 600, {}, true}));
      const Coefficients found = readCoefficients(repaired.bytes);
      ASSERT_EQ(found.planes.size(), whole.planes.size());
      EXPECT_GE(equalTopShare(found, whole), 0.45);
      for (std::size_t k = 0; k < found.planes.size(); ++k) {
        const auto& a = found.planes[k].values;
        const auto& b = whole.planes[k].values;
        const auto bottom = static_cast<std::ptrdiff_t>(a.size() * 3 / 5);
        EXPECT_TRUE(std::equal(a.begin() + bottom, a.end(), b.begin() + bottom, b.end())) << k;
      }
    }
  }
}

TEST(ClosedEnd, dropsZerosAndHalfAMarker) {
  struct Row {
    Bytes bytes;
    Bytes closed;
  };
  const std::vector<Row> rows{{{}, eoi},
                              {zeros(5), eoi},
                              {{1, 2}, {1, 2, 0xFF, 0xD9}},
                              {{1, 0xFF, 0, 0}, {1, 0xFF, 0xD9}},
                              {{1, 0xFF, 0xFF}, {1, 0xFF, 0xFF, 0xD9}}};
  for (const Row& row : rows) EXPECT_EQ(closeEnd(row.bytes), row.closed);
}

TEST(Repair, closesACutPhotoWhereverItIsCut) {
  for (const bool progressive : {false, true}) {
    const Bytes photo = makePhoto({.progressive = progressive, .optimizedTables = true});
    const Coefficients whole = readCoefficients(photo);
    const std::size_t start = parseHeader(photo)->scanStart;
    for (std::size_t end = start + 1; end < photo.size() - 1; end += 7) {
      const Repaired repaired = repair(
          Bytes(photo.begin(), photo.begin() + static_cast<std::ptrdiff_t>(end)), std::nullopt);
      ASSERT_EQ(repaired.result, (Result{Fix::closedEnd, 200, 150, {}, true})) << end;
      const Coefficients found = readCoefficients(repaired.bytes);
      ASSERT_FALSE(found.planes.empty()) << progressive << " cut at " << end << " does not open";
      const std::size_t rowsDecoded = checkPicture(repaired.bytes).unitsDecoded / 13;
      const double rows = static_cast<double>(rowsDecoded) / 10;
      ASSERT_GE(equalTopShare(found, whole), progressive ? 0 : rows) << end;
    }
  }
}

TEST(Rebuild, givesThePictureBackWithASibling) {
  struct Row {
    const char* label;
    PhotoRecipe recipe;
    Borrowed borrowed;
  };
  const Borrowed three{"image size and layout", "quantization tables", "Huffman tables"};
  const Borrowed four{"image size and layout", "quantization tables", "Huffman tables",
                      "restart interval"};
  const std::vector<Row> rows{{"4:2:0", {}, three},
                              {"4:2:2", {.vertical = 1}, three},
                              {"gray", {.color = false, .horizontal = 1, .vertical = 1}, three},
                              {"16-bit tables", {.quality = 3}, three},
                              {"restart markers", {.restartInterval = 4}, four},
                              {"three scans", {.separateScans = true}, three}};
  for (const Row& row : rows) {
    PhotoRecipe siblingRecipe = row.recipe;
    siblingRecipe.variant = 1;
    const Bytes photo = makePhoto(row.recipe);
    const Bytes sibling = makePhoto(siblingRecipe);
    for (unsigned seed = 0; seed < 6; ++seed) {
      SCOPED_TRACE(row.label + std::to_string(seed));
      const Repaired repaired = repair(wiped(photo, scanOf(photo), seed), sibling);
      EXPECT_EQ(readCoefficients(repaired.bytes), readCoefficients(photo));
      EXPECT_EQ(repaired.result, (Result{Fix::rebuiltHeader, 200, 150, row.borrowed, false}));
      EXPECT_TRUE(borrowedPartsFit(repaired));
    }
  }
}

TEST(Rebuild, borrowsOnlyWhatIsMissing) {
  const Bytes photo = withMakerNote(makePhoto({.restartInterval = 4}), makePhoto({.width = 40}));
  const Bytes sibling = makePhoto({.restartInterval = 4, .variant = 1});
  const Coefficients whole = readCoefficients(photo);
  const auto wipedFrom = [&](std::size_t from, std::size_t count) {
    Bytes bytes = photo;
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(from), count, std::uint8_t{0});
    return bytes;
  };
  struct Row {
    const char* label;
    Bytes bytes;
    Borrowed borrowed;
  };
  const std::vector<Row> rows{
      {"first bytes", wiped(photo, 512, 0), {}},
      {"first bytes noise", wiped(photo, 512, 3), {}},
      {"a byte between segments",
       joined({Bytes(photo.begin(),
                     photo.begin() + static_cast<std::ptrdiff_t>(segmentOf(photo, 0xC0))),
               {0},
               Bytes(photo.begin() + static_cast<std::ptrdiff_t>(segmentOf(photo, 0xC0)),
                     photo.end())}),
       {}},
      {"frame", wipedFrom(segmentOf(photo, 0xC0), 19), {"image size and layout"}},
      {"quantization", wipedFrom(segmentOf(photo, 0xDB), 9), {"quantization tables"}},
      {"Huffman", wipedFrom(segmentOf(photo, 0xC4), 9), {"Huffman tables"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    const Repaired repaired = repair(row.bytes, sibling);
    EXPECT_EQ(repaired.result.borrowed, row.borrowed);
    EXPECT_EQ(readCoefficients(repaired.bytes), whole);
    EXPECT_EQ(needsReference(row.bytes), !row.borrowed.empty());
    EXPECT_EQ(failureOf(row.bytes), row.borrowed.empty() ? "no failure" : askForReference);
  }
}

TEST(Rebuild, countsARestartIntervalThatNobodyKnows) {
  const Bytes photo = makePhoto({.restartInterval = 6});
  for (const unsigned lent : {0U, 9U}) {
    const Repaired repaired =
        repair(wiped(photo, scanOf(photo), 0), makePhoto({.restartInterval = lent, .variant = 1}));
    EXPECT_EQ(readCoefficients(repaired.bytes), readCoefficients(photo)) << lent;
    EXPECT_EQ(repaired.result.borrowed.size(), 3U) << "the interval is the photo's own";
  }
  const Bytes plain = makePhoto({});
  const Repaired repaired =
      repair(wiped(plain, scanOf(plain), 0), makePhoto({.restartInterval = 6, .variant = 1}));
  EXPECT_EQ(readCoefficients(repaired.bytes), readCoefficients(plain)) << "lent where none is";
}

TEST(Rebuild, believesNoFrameHeaderThatIsNone) {
  const Bytes photo = makePhoto({});
  const Bytes sibling = makePhoto({.variant = 1});
  const std::size_t scan = scanOf(photo);
  const std::vector<Bytes> impostors{
      {0xFF, 0xC0, 0x00, 0x04, 0x55, 0x55},                                   // no frame's length
      grayFrame(64, 64),                                                      // of another layout
      segment(0xC0, {8, 0, 9, 0, 9, 3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1}),  // of another size
      makePhoto({.width = 40}),                                               // a whole other photo
  };
  for (const Bytes& impostor : impostors) {
    Bytes damaged = joined({{0}, wiped(photo, scan, 0)});
    const std::size_t room = 1 + scan - std::min(impostor.size(), scan);
    damaged.insert(damaged.begin() + static_cast<std::ptrdiff_t>(room), impostor.begin(),
                   impostor.end());
    const Repaired repaired = repair(damaged, sibling);
    EXPECT_EQ(readCoefficients(repaired.bytes), readCoefficients(photo)) << impostor.size();
  }
}

TEST(Rebuild, startsAProgressivePhotoAtItsFirstScan) {
  const Bytes photo = makePhoto({.progressive = true});
  const Bytes tables = withMakerNote(photo, makePhoto({.width = 40}));
  const Repaired repaired = repair(wiped(tables, 900, 2), std::nullopt);
  EXPECT_EQ(readCoefficients(repaired.bytes), readCoefficients(photo));
  EXPECT_FALSE(repaired.result.incomplete);
}

TEST(Rebuild, closesACutPhotoToo) {
  const Bytes photo = makePhoto({});
  Bytes damaged = wiped(photo, scanOf(photo), 0);
  damaged.resize(damaged.size() * 2 / 3);
  const Repaired repaired = repair(damaged, makePhoto({.variant = 1}));
  EXPECT_TRUE(repaired.result.incomplete);
  EXPECT_TRUE(hasEnd(repaired.bytes));
  EXPECT_TRUE(borrowedPartsFit(repaired));
  EXPECT_GT(equalTopShare(readCoefficients(repaired.bytes), readCoefficients(photo)), 0.4);
}

TEST(Rebuild, doesNotPassOffAStrangersHeader) {
  struct Row {
    const char* label;
    PhotoRecipe stranger;
  };
  const std::vector<Row> rows{
      {"larger", {.width = 1200}},
      {"smaller", {.width = 800, .height = 500}},
      {"turned", {.width = 600, .height = 800}},
      {"other sampling", {.width = 800, .height = 600, .vertical = 1}},
      {"other Huffman tables", {.width = 800, .height = 600, .optimizedTables = true}},
      {"progressive", {.width = 800, .height = 600, .progressive = true}},
      {"much coarser steps", {.width = 800, .height = 600, .quality = 2}}};
  const Bytes photo = makePhoto({.width = 800, .height = 600, .variant = 30});
  for (const Row& row : rows) {
    const Repaired repaired = repair(wiped(photo, scanOf(photo), 1), makePhoto(row.stranger));
    EXPECT_FALSE(borrowedPartsFit(repaired)) << row.label;
  }
}

TEST(Failures, saySentencesThatTheUserReads) {
  const Bytes photo = makePhoto({});
  const Bytes damaged = wiped(photo, scanOf(photo), 0);
  EXPECT_EQ(failureOf({}), "This doesn't look like a JPEG photo.");
  EXPECT_EQ(failureOf(markerNoise(60, 1)), "This doesn't look like a JPEG photo.");
  EXPECT_EQ(failureOf(damaged), askForReference);
  EXPECT_EQ(failureOf(damaged, damaged), askForReference) << "a reference that is damaged too";
}

TEST(Salvage, keepsWholeSegmentsBehindTheLastEnd) {
  const Bytes inner = joined({quantTable(3), eoi});
  const Bytes data = joined({inner,
                             {1, 2},
                             quantTable(1),
                             {0xFF},
                             huffmanTable(0x00),
                             segment(0xDD, {0, 9}),
                             segment(0xE0, {1}),
                             grayFrame(8, 8),
                             segment(0xDD, {0, 0, 9}),
                             segment(0xDB, {0, 1, 2})});
  std::vector<int> markers;
  for (const Segment& segment : salvageSegments(data, data.size())) {
    markers.push_back(segment.marker);
    EXPECT_EQ(data[segment.offset + 1], segment.marker);
  }
  EXPECT_EQ(markers, (std::vector<int>{0xDB, 0xC4, 0xDD, 0xC0}));
  const std::size_t first = inner.size() + 2;
  EXPECT_TRUE(salvageSegments(data, first + quantTable(1).size() - 1).empty()) << "cut by a byte";
}

}  // namespace
}  // namespace tallowmark::testing
