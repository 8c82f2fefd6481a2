// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "MediaKit/Photo/FrameLayout.h"
#include "MediaKit/Photo/PictureCheck.h"
#include "MediaKit/Photo/RebuiltPicture.h"
#include "Photos.h"

namespace tallowmark::testing {
namespace {

using namespace JPEGRepair;
using Verdict = PictureCheck::Verdict;

struct Row {
  const char* label;
  PhotoRecipe recipe;
  std::size_t across;
  std::size_t down;
};

const std::vector<Row>& recipes() {
  static const std::vector<Row> rows{
      {"4:2:0", {}, 13, 10},
      {"4:2:2", {.horizontal = 2, .vertical = 1}, 13, 19},
      {"4:4:4 at quality 100", {.quality = 100, .horizontal = 1, .vertical = 1}, 25, 19},
      {"16-bit quantization", {.quality = 3}, 13, 10},
      {"gray", {.color = false, .horizontal = 1, .vertical = 1}, 25, 19},
      {"optimized", {.optimizedTables = true}, 13, 10},
      {"restart markers", {.restartInterval = 5}, 13, 10},
      {"three scans", {.separateScans = true}, 25, 19},
      {"progressive", {.progressive = true}, 13, 10},
      {"progressive, restart markers", {.progressive = true, .restartInterval = 3}, 13, 10},
      {"progressive gray",
       {.color = false, .horizontal = 1, .vertical = 1, .progressive = true},
       25,
       19},
  };
  return rows;
}

PictureParts partsOf(const Header& header) {
  return {.frame = *header.frame(),
          .tables = header.segments,
          .first = {.sos = header.sos, .scanStart = header.scanStart}};
}

TEST(PictureCheck, decodesWholePicturesToTheirEnd) {
  for (const Row& row : recipes()) {
    SCOPED_TRACE(row.label);
    const PictureCheck check = checkPicture(makePhoto(row.recipe));
    EXPECT_EQ(check.verdict, Verdict::complete);
    EXPECT_EQ(check.unitsDecoded, row.across * row.down);
    EXPECT_EQ(check.unitsExpected, row.across * row.down);
    EXPECT_EQ(check.brightness.size(), row.across * row.down);
  }
  EXPECT_EQ(checkPicture(makePhoto({.arithmetic = true})).verdict, Verdict::notDecoded);
}

TEST(PictureCheck, tellsACutFromDamage) {
  for (const Row& row : recipes()) {
    SCOPED_TRACE(row.label);
    const Bytes photo = makePhoto(row.recipe);
    const std::size_t start = parseHeader(photo)->scanStart;
    const std::size_t middle = start + (photo.size() - start) / 5;
    const PictureCheck cut = checkPicture(ByteView(photo).first(middle));
    EXPECT_EQ(cut.verdict, Verdict::endsEarly);
    if (!row.recipe.progressive && !row.recipe.separateScans) {
      EXPECT_LT(cut.unitsDecoded, row.across * row.down);
      EXPECT_GT(cut.unitsDecoded, row.across * row.down / 20);
    }
  }
}

TEST(PictureCheck, seesAHeaderThatBelongsToAnotherPicture) {
  struct Stranger {
    const char* label;
    PhotoRecipe photo;
    PhotoRecipe lender;
    Verdict expected;
  };
  const std::vector<Stranger> rows{
      {"larger", {}, {.width = 400}, Verdict::endsEarly},
      {"smaller", {}, {.height = 100}, Verdict::dataLeftOver},
      {"other tables", {}, {.optimizedTables = true}, Verdict::corrupt},
      {"other sampling", {}, {.vertical = 1}, Verdict::corrupt},
      {"longer interval", {.restartInterval = 5}, {.restartInterval = 6}, Verdict::corrupt},
      {"an interval too many", {}, {.restartInterval = 6}, Verdict::corrupt},
      {"progressive", {}, {.progressive = true}, Verdict::corrupt},
  };
  for (const Stranger& row : rows) {
    const Bytes photo = makePhoto(row.photo);
    const Bytes lender = makePhoto(row.lender);
    PictureParts parts = partsOf(*parseHeader(lender));
    parts.first = partsOf(*parseHeader(photo)).first;
    EXPECT_EQ(checkPicture(photo, parts).verdict, row.expected) << row.label;
  }
}

TEST(PictureCheck, countsTheUnitsBeforeAnUnannouncedRestartMarker) {
  const Bytes photo = makePhoto({.restartInterval = 7});
  PictureParts parts = partsOf(*parseHeader(photo));
  std::erase_if(parts.tables, [](const Segment& segment) { return segment.marker == 0xDD; });
  const PictureCheck check = checkPicture(photo, parts);
  EXPECT_EQ(check.verdict, Verdict::corrupt);
  EXPECT_EQ(check.unitsToRestart, 7U);
}

TEST(PictureCheck, takesNoTimeForWhatOnlyTheHeaderClaims) {
  Bytes photo = makePhoto({.progressive = true});
  const Segment frame = *parseHeader(photo)->frame();
  for (std::size_t i = 5; i < 9; ++i) photo[frame.offset + i] = 0xFF;
  EXPECT_EQ(checkPicture(photo).verdict, Verdict::notDecoded);

  // Scan after scan whose one code ends 32,767 blocks.
  Bytes hostile = joined({soi, quantTable(0), grayFrame(4000, 4000, 0, 0xC2), huffmanTable(0x00),
                          segment(0xC4, joined({{0x10, 1}, zeros(15), {0xE0}})),
                          segment(0xDA, {1, 1, 0x00, 0, 0, 0}), zeros(32'000)});
  const Bytes scan = joined({segment(0xDA, {1, 1, 0x00, 1, 63, 0}), zeros(40)});
  for (int i = 0; i < 4000; ++i) hostile.insert(hostile.end(), scan.begin(), scan.end());
  EXPECT_EQ(checkPicture(hostile).verdict, Verdict::notDecoded);
}

TEST(FrameLayout, refusesNumbersThatCannotStandThere) {
  const Bytes good = segment(0xC0, {8, 0, 16, 0, 16, 3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1});
  struct Fault {
    const char* label;
    std::size_t at;
    std::uint8_t value;
  };
  const std::vector<Fault> faults{
      {"precision", 4, 12},      {"width 0", 8, 0},          {"no component", 9, 0},
      {"five components", 9, 5}, {"same identifier", 13, 1}, {"sampling 0", 14, 0x01},
      {"sampling 5", 14, 0x51},  {"table 4", 15, 4},
  };
  const auto layoutOf = [](const Bytes& bytes) { return frameLayout({bytes[1], 0, bytes}); };
  ASSERT_TRUE(layoutOf(good));
  EXPECT_EQ(layoutOf(good)->unitsAcross(), 1U);
  for (const Fault& fault : faults) {
    Bytes bad = good;
    bad[fault.at] = fault.value;
    EXPECT_FALSE(layoutOf(bad)) << fault.label;
  }
  EXPECT_FALSE(layoutOf(joined({good, {0}}))) << "a byte too many";
}

TEST(RowsOfUnits, lineUpAtThePicturesOwnWidthAlone) {
  const PhotoRecipe recipe{.width = 1600, .height = 1200, .variant = 40};
  const PictureCheck check = checkPicture(makePhoto(recipe));
  EXPECT_TRUE(linesUp(check.brightness, 100));
  for (const std::size_t wrong : {40U, 75U, 90U, 111U, 134U, 160U}) {
    EXPECT_FALSE(linesUp(check.brightness, wrong)) << wrong;
  }
  EXPECT_TRUE(linesUp(std::vector<std::int16_t>(7500, 12), 90)) << "a flat picture tells nothing";
  EXPECT_TRUE(linesUp({}, 100));
}

}  // namespace
}  // namespace tallowmark::testing
