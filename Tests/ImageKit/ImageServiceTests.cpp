// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "ImageKit/PixelReducer.h"
#include "Images.h"
#include "JPEGCoefficients.h"
#include "MediaKit/Photo/JPEGRepair.h"
#include "Photos.h"

namespace tallowmark::testing {
namespace {

const ImageProperty* find(const std::vector<ImageProperty>& properties, std::uint16_t tag) {
  const auto found = std::find_if(properties.begin(), properties.end(),
                                  [tag](const ImageProperty& one) { return one.tag == tag; });
  return found == properties.end() ? nullptr : &*found;
}

ImageProperty textProperty(std::uint16_t tag, const std::string& value) {
  return {.tag = tag, .type = 2, .value = joined({text(value), {0}})};
}

TEST(Thumbnail, isBoundedAndNeverEnlarged) {
  struct Row {
    PhotoRecipe recipe;
    int most;
    int width;
    int height;
  };
  const std::vector<Row> rows{{{}, 256, 200, 150},
                              {{}, 100, 100, 75},
                              {{}, 1, 1, 1},
                              {{.width = 640, .height = 40}, 64, 64, 4},
                              {{.progressive = true}, 50, 50, 38},
                              {{.color = false, .horizontal = 1, .vertical = 1}, 50, 50, 38}};
  for (const Row& row : rows) {
    const auto small = images.thumbnail(makePhoto(row.recipe), row.most, Turn::asStored);
    ASSERT_TRUE(small);
    EXPECT_EQ(small->pixels.width, row.width);
    EXPECT_EQ(small->pixels.height, row.height);
    EXPECT_EQ(small->pixels.rgb.size(), static_cast<std::size_t>(row.width * row.height * 3));
    EXPECT_FALSE(small->complained);
  }
  EXPECT_FALSE(images.thumbnail(makePhoto({}), 0, Turn::asStored));
}

TEST(Thumbnail, tellsComplaintFromFailure) {
  const Bytes photo = makePhoto({});
  const auto cut = images.thumbnail(JPEGRepair::closeEnd(ByteView(photo).first(photo.size() / 2)),
                                    100, Turn::asStored);
  ASSERT_TRUE(cut) << "a closed end opens";
  EXPECT_TRUE(cut->complained);
  const Bytes noTables = joined({soi, grayFrame(16, 16), grayScan(), Bytes(64, 0x55), eoi});
  for (const Bytes& bad : {noTables, Bytes{}, soi, markerNoise(500, 1), Bytes(5000, 0x49)}) {
    EXPECT_FALSE(images.thumbnail(bad, 100, Turn::asStored));
  }
  EXPECT_EQ(images.imageCount(photo), 1U);
  EXPECT_EQ(images.imageCount(markerNoise(500, 1)), 0U);
  EXPECT_EQ(images.imageCount({}), 0U);
}

TEST(Thumbnail, takesNoMemoryForWhatOnlyTheHeaderClaims) {
  for (const bool progressive : {false, true}) {
    Bytes photo = makePhoto({.progressive = progressive});
    const std::size_t frame = JPEGRepair::parseHeader(photo)->frame()->offset;
    for (std::size_t i = 5; i < 9; ++i) photo[frame + i] = 0xFF;
    EXPECT_FALSE(images.thumbnail(photo, 256, Turn::asStored));
  }
}

// A picture of six pixels, lettered, and what each orientation makes of it.
TEST(Turning, followsTheOrientation) {
  const auto lettered = [](int width, const std::string& letters) {
    Pixels pixels{.width = width, .height = static_cast<int>(letters.size()) / width, .rgb = {}};
    for (const char letter : letters) {
      pixels.rgb.insert(pixels.rgb.end(), 3, static_cast<std::uint8_t>(letter));
    }
    return pixels;
  };
  const std::vector<std::pair<int, Pixels>> rows{
      {1, lettered(3, "abcdef")}, {2, lettered(3, "cbafed")}, {3, lettered(3, "fedcba")},
      {4, lettered(3, "defabc")}, {5, lettered(2, "adbecf")}, {6, lettered(2, "daebfc")},
      {7, lettered(2, "fcebda")}, {8, lettered(2, "cfbead")}, {9, lettered(3, "abcdef")}};
  for (const auto& [orientation, expected] : rows) {
    EXPECT_EQ(turned(lettered(3, "abcdef"), orientation), expected) << orientation;
  }
}

TEST(Encoding, givesAPhotoOfTheSamePicture) {
  const auto pixels = images.thumbnail(makePhoto({}), 200, Turn::asStored)->pixels;
  const auto fine = images.encodeJPEG(pixels, 0.95);
  const auto coarse = images.encodeJPEG(pixels, 0.3);
  ASSERT_TRUE(fine && coarse);
  EXPECT_LT(coarse->size(), fine->size());
  const auto again = images.thumbnail(*fine, 200, Turn::asStored)->pixels;
  double difference = 0;
  for (std::size_t i = 0; i < pixels.rgb.size(); ++i) {
    difference += std::abs(pixels.rgb[i] - again.rgb[i]);
  }
  EXPECT_LT(difference / static_cast<double>(pixels.rgb.size()), 6);
  EXPECT_FALSE(images.encodeJPEG({.width = 10, .height = 10, .rgb = {1, 2, 3}}, 0.7));
  EXPECT_FALSE(images.encodeJPEG({}, 0.7));
}

TEST(Details, areSetOverThoseOfTheJPEGAndItsPictureStays) {
  const Bytes photo = makePhoto({});
  const ImageProperties given{.exif = {textProperty(0x9003, "2024:05:06 07:08:09")},
                              .gps = {textProperty(0x0001, "N")},
                              .tiff = {textProperty(0x0110, "Camera X")},
                              .orientation = 6};
  const auto first = images.withProperties(photo, given);
  ASSERT_TRUE(first);
  EXPECT_EQ(readCoefficients(*first), readCoefficients(photo));
  const ImageProperties kept = images.properties(*first);
  EXPECT_EQ(kept.orientation, 6);
  ASSERT_TRUE(find(kept.exif, 0x9003) && find(kept.gps, 0x0001) && find(kept.tiff, 0x0110));
  EXPECT_EQ(*find(kept.exif, 0x9003), given.exif[0]);
  EXPECT_EQ(*find(kept.tiff, 0x0110), given.tiff[0]);

  const auto second = images.withProperties(
      *first, {.exif = {}, .gps = {}, .tiff = {textProperty(0x0110, "Y")}, .orientation = {}});
  ASSERT_TRUE(second);
  const ImageProperties merged = images.properties(*second);
  EXPECT_EQ(*find(merged.tiff, 0x0110), textProperty(0x0110, "Y"));
  EXPECT_TRUE(find(merged.exif, 0x9003)) << "details of its own stay";

  const auto upright = images.thumbnail(*second, 100, Turn::byOrientation);
  EXPECT_EQ(upright->pixels.height, 100) << "turned by its orientation";

  EXPECT_FALSE(images.withProperties(Bytes(100, 1), given));
  EXPECT_TRUE(images.properties(markerNoise(100, 1)).empty());
}

}  // namespace
}  // namespace tallowmark::testing
