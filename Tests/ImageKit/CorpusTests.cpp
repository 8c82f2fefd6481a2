// SPDX-License-Identifier: GPL-3.0-or-later
// Photos and RAW files from real cameras.
#include <gtest/gtest.h>

#include <map>

#include "Images.h"
#include "JPEGCoefficients.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/PhotoRepair.h"
#include "MediaKit/Photo/RAWPreview.h"
#include "Photos.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;
using JPEGRepair::Diagnosis;

const char* const noCorpus = "the folder of real camera files is not here";

std::vector<fs::path> healthyPhotos() {
  std::vector<fs::path> photos = corpusFiles("jpeg");
  std::erase_if(photos,
                [](const fs::path& path) { return path.filename().string().starts_with("bad_"); });
  return photos;
}

TEST(RealPhotos, areHealthyAndLeftAsTheyAre) {
  const auto photos = healthyPhotos();
  if (photos.empty()) GTEST_SKIP() << noCorpus;
  for (const fs::path& path : photos) {
    const Bytes photo = contentsOf(path);
    EXPECT_EQ(JPEGRepair::diagnose(photo), Diagnosis::healthy) << path;
    EXPECT_EQ(JPEGRepair::checkPicture(photo).verdict, JPEGRepair::PictureCheck::Verdict::complete)
        << path;
    EXPECT_EQ(repairPhoto(photo, std::nullopt, images).bytes, photo) << path;
  }
}

TEST(RealPhotos, comeBackWithASiblingWhateverPartOfTheHeaderIsGone) {
  const std::map<std::string, std::string> siblings{
      {"CanonG2_img_0309.jpg", "CanonG2_img_0310.jpg"},
      {"GoProHero7_gopr8509.jpg", "GoProHero7_gopr8510.jpg"},
      {"HPM417_hpim0009.jpg", "HPM417_hpim0010.jpg"},
      {"NikonD3100_dsc_0001.jpg", "NikonD3100_dsc_0003.jpg"},
      {"PanasonicDS_p1000241.jpg", "PanasonicDS_p1000242.jpg"},
      {"PentaxistDL_imgp6666.jpg", "PentaxistDL_imgp6674.jpg"},
      {"SonyA6400_dsc00007.jpg", "SonyA6400_dsc00008.jpg"},
      {"iPhoneXR_img_3580.jpg", "iPhoneXR_img_3581.jpg"},
      {"progressive_panasonic_lc70.jpg", "progressive_panasonic_lc70.jpg"}};
  for (const auto& [name, siblingName] : siblings) {
    const auto path = corpusFile("jpeg/" + name);
    const auto siblingPath = corpusFile("jpeg/" + siblingName);
    if (!path || !siblingPath) GTEST_SKIP() << noCorpus;
    const Bytes photo = contentsOf(*path);
    const Bytes sibling = contentsOf(*siblingPath);
    const Coefficients whole = readCoefficients(photo);
    const std::size_t scan = JPEGRepair::parseHeader(photo)->sos.offset;
    for (const std::size_t count : {std::size_t{512}, std::size_t{8192}, scan}) {
      const Bytes damaged = wiped(photo, std::min(count, scan), static_cast<unsigned>(count % 3));
      const auto repaired = repairPhoto(damaged, sibling, images);
      EXPECT_EQ(readCoefficients(repaired.bytes), whole) << name << " without " << count;
      EXPECT_FALSE(repaired.result.incomplete) << name;
    }
  }
}

TEST(RealDamage, isNamedAndMended) {
  struct Row {
    const char* name;
    Diagnosis expected;
  };
  const std::vector<Row> rows{
      {"bad_truncated_canon_32d08f.jpg", Diagnosis::truncated},
      {"bad_rst_40bb78.jpg", Diagnosis::truncated},
      {"bad_extra_bytes_308.jpg", Diagnosis::damagedHeader},
      {"bad_tm_broken-bogus-data-prepended-real-jfif-start-at-4801.jpg", Diagnosis::damagedHeader},
      {"bad_tm_broken-sos-before-sof.jpg", Diagnosis::damagedHeader},
  };
  for (const Row& row : rows) {
    const auto path = corpusFile(fs::path("jpeg") / row.name);
    if (!path) GTEST_SKIP() << noCorpus;
    const Bytes photo = contentsOf(*path);
    EXPECT_EQ(JPEGRepair::diagnose(photo), row.expected) << row.name;
    EXPECT_FALSE(JPEGRepair::needsReference(photo)) << row.name;
    EXPECT_NO_THROW((void)repairPhoto(photo, std::nullopt, images)) << row.name;
  }
}

TEST(RealRAWFiles, giveTheirPictureAndDetails) {
  struct Row {
    const char* name;
    int width;  // 0 for no picture
    int height;
    bool keptDetails;
    bool opens;
  };
  const std::vector<Row> rows{{"canon_d30.crw", 1440, 960, true, true},
                              {"canon_eosr_truncated.cr3", 1620, 1080, true, false},
                              {"canon_r6_pruned2.cr3", 1620, 1080, true, false},
                              {"kodak_dc120.kdc", 0, 0, false, true},
                              {"nikon_d1.nef", 0, 0, false, true},
                              {"nikon_d70s_capturenx_247-1.nef", 2000, 3008, true, true},
                              {"pentax_k3ii_shrunken.pef", 720, 480, true, false},
                              {"sony_a330_truncated.arw", 160, 120, true, false}};
  for (const Row& row : rows) {
    const auto path = corpusFile(fs::path("raw") / row.name);
    if (!path) GTEST_SKIP() << noCorpus;
    SCOPED_TRACE(row.name);
    const Bytes raw = contentsOf(*path);
    EXPECT_EQ(RAWPreview::diagnose(raw, images) == RAWPreview::Diagnosis::opens, row.opens);
    try {
      const RAWPreview::Found found = RAWPreview::extract(raw, images);
      EXPECT_EQ(found.width, row.width);
      EXPECT_EQ(found.height, row.height);
      EXPECT_EQ(found.incomplete, std::string(row.name) == "canon_eosr_truncated.cr3");
      EXPECT_EQ(found.keptDetails, row.keptDetails);
      EXPECT_FALSE(images.properties(found.jpeg).exif.empty());
      EXPECT_EQ(images.properties(found.jpeg).orientation, images.properties(raw).orientation);
    } catch (const MediaError&) {
      EXPECT_EQ(row.width, 0);
    }
  }
}

}  // namespace
}  // namespace tallowmark::testing
