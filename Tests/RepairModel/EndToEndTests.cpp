// SPDX-License-Identifier: GPL-3.0-or-later
#include "Chapters.h"
#include "JPEGCoefficients.h"
#include "ModelTests.h"
#include "TallowmarkRepair/Preview/PreviewExport.h"
#include "Tests/Support/Boxes.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class EndToEndTests : public ModelTests {
 protected:
  void SetUp() override {
    ModelTests::SetUp();
    surroundings.previewer = [](const fs::path& clip, const fs::path& preview, double seconds,
                                const StopToken& stop) {
      static const PreviewExport exporter;
      return exporter.makePreview(clip, preview, seconds, stop);
    };
    if (!IsSkipped()) startModel();
  }
};

TEST_F(EndToEndTests, bringBackACardOfARealCamera) {
  const auto clipFile = corpusFile("video/gopro_hero7_h264.mp4");
  const auto phoneClip = corpusFile("video/iphoneXR_IMG_3589_hevc_lpcm.mov");
  const auto photo = corpusFile("jpeg/iPhoneXR_img_3580.jpg");
  const auto sibling = corpusFile("jpeg/iPhoneXR_img_3581.jpg");
  const auto rawFile = corpusFile("raw/canon_d30.crw");
  if (!clipFile || !phoneClip || !photo || !sibling || !rawFile) {
    GTEST_SKIP() << "no folder of real camera files";
  }
  const fs::path card = folder / "card";
  fs::create_directory(card);
  const auto chapters = cutIntoChapters(*clipFile, card, 2);
  fs::rename(chapters[0], card / "GH010042.MP4");
  fs::rename(chapters[1], card / "GH020042.MP4");
  fs::copy_file(*phoneClip, card / "IMG_3589.MOV");
  writeFile(card / "IMG_3590.MOV", withoutIndex(contentsOf(*phoneClip)));
  writeFile(card / "GH010043.MP4", withoutIndex(contentsOf(*clipFile)));
  fs::copy_file(*photo, card / "IMG_3580.JPG");
  Bytes headless = contentsOf(*sibling);
  std::fill(headless.begin(), headless.begin() + 2'000, std::uint8_t{0});
  writeFile(card / "IMG_3581.JPG", headless);
  fs::copy_file(*rawFile, card / "CRW_0001.CRW");
  std::map<std::string, Fingerprint> before;
  for (const std::string& name : namesIn(card)) before[name] = fingerprint(card / name);

  add({card});
  const std::map<std::string, std::string> expected{
      {"GH010042.MP4", "healthy"}, {"GH020042.MP4", "healthy"}, {"IMG_3589.MOV", "healthy"},
      {"IMG_3580.JPG", "healthy"}, {"IMG_3590.MOV", "preview"}, {"GH010043.MP4", "preview"},
      {"IMG_3581.JPG", "preview"}, {"CRW_0001.CRW", "preview"}};
  for (const auto& [name, state] : expected) EXPECT_EQ(stateOf(name), state) << name;
  ASSERT_EQ(model->joins().size(), 1U);
  for (const QUuid& id : model->savableIDs()) {
    const auto preview = model->previewFile(id);
    ASSERT_TRUE(preview);
    EXPECT_EQ(decodingComplaints(*preview), "") << *preview;
    EXPECT_LT(fs::file_size(*preview), 8'000'000U);
  }
  EXPECT_EQ(model->stepStatus().toStdString(),
            "4 repaired files and 1 split recording are ready. Check the previews, then save.");
  model->save(model->savableIDs(), out);
  ASSERT_TRUE(settle());
  EXPECT_EQ(model->step(), 4);
  EXPECT_EQ(namesIn(out),
            (std::vector<std::string>{"CRW_0001 (rescued).jpg", "GH010042 (joined).MP4",
                                      "GH010043 (repaired).MP4", "IMG_3581 (repaired).JPG",
                                      "IMG_3590 (repaired).MOV"}));
  for (const char* name : {"GH010042 (joined).MP4", "GH010043 (repaired).MP4"}) {
    EXPECT_EQ(decodingComplaints(out / name), "") << name;
  }
  EXPECT_EQ(run({"ffprobe", "-v", "error", "-count_frames", "-select_streams", "v", "-show_entries",
                 "stream=nb_read_frames", "-of", "csv=p=0", out / "IMG_3590 (repaired).MOV"})
                .output,
            "81\n");
  EXPECT_EQ(std::get<Clip::Saved>(clip("GH010043.MP4").state).summary.frames, 352);
  EXPECT_EQ(readCoefficients(contentsOf(out / "IMG_3581 (repaired).JPG")),
            readCoefficients(contentsOf(*sibling)));
  EXPECT_EQ(readCoefficients(contentsOf(out / "CRW_0001 (rescued).jpg")).width, 1440U);
  for (const auto& [name, print] : before) EXPECT_EQ(fingerprint(card / name), print) << name;
}

}  // namespace
}  // namespace tallowmark::testing
