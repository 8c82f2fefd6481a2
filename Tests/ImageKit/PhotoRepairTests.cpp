// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "Images.h"
#include "JPEGCoefficients.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/PhotoRepair.h"
#include "MediaKit/Photo/RAWPreview.h"
#include "Photos.h"

namespace tallowmark::testing {
namespace {

std::size_t scanOf(const Bytes& photo) {
  return JPEGRepair::parseHeader(photo)->sos.offset;
}

template <typename Work>
std::string failureOf(Work work) {
  try {
    work();
  } catch (const MediaError& error) {
    return error.what();
  }
  return "no failure";
}

TEST(RepairPhoto, saysSoWhenTheReferenceCannotBeRight) {
  const PhotoRecipe recipe{.width = 800, .height = 600, .variant = 30};
  const Bytes photo = makePhoto(recipe);
  const Bytes damaged = wiped(photo, scanOf(photo), 1);
  const auto repairWith = [&](const Bytes& reference) {
    return failureOf([&] { (void)repairPhoto(damaged, reference, images); });
  };
  const std::string wrong =
      "The rebuilt photo still won't open. Check that the reference photo was taken on the same "
      "camera, at the same size and quality setting.";
  EXPECT_EQ(repairWith(makePhoto({.width = 800, .height = 600})), "no failure");
  EXPECT_EQ(repairWith(makePhoto({.width = 1200, .height = 600})), wrong);
  EXPECT_EQ(repairWith(makePhoto({.width = 600, .height = 800})), wrong);
  EXPECT_EQ(repairWith(makePhoto({.width = 800, .height = 600, .optimizedTables = true})), wrong);
}

TEST(RepairPhoto, saysSoWhenWhatWasClosedStillDoesNotOpen) {
  // Sound by its structure, but its one Huffman table is no code.
  const Bytes noCode = segment(0xC4, joined({{0x00}, Bytes(16, 9), Bytes(144, 0)}));
  const Bytes photo = joined({soi, quantTable(0), grayFrame(16, 16), noCode, huffmanTable(0x10),
                              grayScan(), Bytes(200, 0x55)});
  EXPECT_EQ(failureOf([&] { (void)repairPhoto(photo, std::nullopt, images); }),
            "The repaired photo still won't open.");
}

TEST(PhotoPreview, isSmallUprightAndInPlaceOfAnOldOne) {
  const TemporaryFolder folder;
  const Bytes photo =
      *images.withProperties(makePhoto({}), {.exif = {}, .gps = {}, .tiff = {}, .orientation = 8});
  const auto target = writeFile(folder / "a-preview.jpg", text("an old preview"));
  ASSERT_TRUE(makePhotoPreview(photo, target, 90, images));
  const Bytes preview = contentsOf(target);
  EXPECT_EQ(JPEGRepair::parseHeader(preview)->dimensions(), (JPEGRepair::Dimensions{68, 90}));
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"a-preview.jpg"}));
  EXPECT_FALSE(makePhotoPreview(markerNoise(99, 1), target, 90, images));
  EXPECT_EQ(contentsOf(target), preview) << "what stood there stays when there is nothing new";
  EXPECT_FALSE(makePhotoPreview(photo, folder / "missing" / "a.jpg", 90, images));
}

TEST(RAWRescue, takesTheLargestPictureThatOpens) {
  const Bytes small = makePhoto({.width = 160, .height = 120});
  const Bytes large = makePhoto({.width = 640, .height = 480});
  Bytes noTables = joined({grayHeader(4000, 3000), Bytes(400, 0x55), eoi});
  noTables.erase(noTables.begin() + 2, noTables.begin() + 71);
  const Bytes sensor = markerNoise(3000, 5);
  const Bytes cut(large.begin(), large.begin() + static_cast<std::ptrdiff_t>(large.size() / 2));
  struct Row {
    const char* label;
    Bytes raw;
    int width;
    bool incomplete;
  };
  const std::vector<Row> rows{
      {"both whole", joined({zeros(50), small, sensor, large, sensor}), 640, false},
      {"larger one without tables", joined({noTables, zeros(50), large}), 640, false},
      {"largest cut at the file's end", joined({zeros(9), small, zeros(9), cut}), 640, true},
      {"largest breaks off into sensor data",
       joined({small, cut, {0xFF, 0x01}, Bytes(999, 7), eoi}), 640, true},
      {"first bytes gone", joined({zeros(65536), small}), 160, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    const RAWPreview::Found found = RAWPreview::extract(row.raw, images);
    EXPECT_EQ(found.width, row.width);
    EXPECT_EQ(found.incomplete, row.incomplete);
    EXPECT_FALSE(found.keptDetails) << "there are none";
    const Coefficients whole = readCoefficients(row.width == 160 ? small : large);
    const double share = equalTopShare(readCoefficients(found.jpeg), whole);
    EXPECT_GE(share, row.incomplete ? 0.3 : 1.0);
  }
  const std::string sentence =
      "No usable picture was found inside this RAW file. The preview the camera stores in it is "
      "missing or damaged too.";
  for (const Bytes& none : {Bytes{}, sensor, noTables, wiped(large, 30, 0)}) {
    EXPECT_EQ(failureOf([&] { (void)RAWPreview::extract(none, images); }), sentence);
    EXPECT_EQ(RAWPreview::diagnose(none, images), RAWPreview::Diagnosis::damaged);
  }
}

}  // namespace
}  // namespace tallowmark::testing
