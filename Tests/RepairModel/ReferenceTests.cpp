// SPDX-License-Identifier: GPL-3.0-or-later
#include "DecoderKit/FFmpegDecoder.h"
#include "MediaKit/Container/MediaError.h"
#include "ModelTests.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class ReferenceTests : public ModelTests {
 protected:
  std::string refusalOf(const fs::path& file) {
    try {
      model->setReference(file);
    } catch (const MediaError& error) {
      return error.what();
    }
    return {};
  }
  fs::path copyOf(const fs::path& original, const std::string& name) {
    fs::copy_file(original, folder / name);
    return folder / name;
  }
};

TEST_F(ReferenceTests, matchByCameraNamingBeforeTheOrderInTheList) {
  const fs::path drone = copyOf(good, "DJI_0001.MOV");
  const fs::path sameKey = copyOf(good, "GX010007.MP4");
  add({drone, sameKey, good});
  EXPECT_EQ(model->reference(), drone);
  add({noIndex});
  EXPECT_EQ(model->reference(clip("GX010003.MOV")), good);
  EXPECT_EQ(model->reference(), sameKey);
  EXPECT_FALSE(model->referenceChosenByUser());
  ASSERT_TRUE(model->referenceInfo());
  EXPECT_EQ(model->referenceInfo()->width, 320);
  ASSERT_EQ(model->referencesInUse().size(), 1U);
  EXPECT_EQ(model->referencesInUse().front().first, good);

  model->remove(clip("GX010001.MOV").id);
  EXPECT_EQ(model->reference(clip("GX010003.MOV")), sameKey);
  model->remove(clip("GX010007.MP4").id);
  EXPECT_EQ(model->reference(clip("GX010003.MOV")), drone);
  EXPECT_EQ(model->reference(), drone);
  model->remove(clip("DJI_0001.MOV").id);
  EXPECT_EQ(model->reference(), std::nullopt);
  EXPECT_EQ(model->referenceInfo(), std::nullopt);
}

TEST_F(ReferenceTests, tryAnotherSortWhereTheFirstFails) {
  ClipRecipe other;
  other.codec = "libx265";
  other.container = "mov";
  const fs::path firstInList = copyOf(makeClip(other), "GX010000.MOV");
  add({firstInList, good, noIndex});
  EXPECT_EQ(stateOf("GX010003.MOV"), "preview");
  EXPECT_EQ(model->referencesInUse().front().first, good);
}

TEST_F(ReferenceTests, failTheClipWhosePicturesTheyDoNotFit) {
  surroundings.decoder = decodePictures;
  startModel();
  const fs::path larger = copyOf(makeClip({.width = 640, .height = 480}), "GX010008.MP4");
  add({larger, noIndex});
  EXPECT_EQ(stateOf("GX010003.MOV"),
            "No video from this camera was found in the clip. Check that the reference clip was "
            "recorded on the same camera, at the same resolution and frame rate.");
  add({good});
  EXPECT_EQ(stateOf("GX010001.MOV"), "healthy");
  model->setReference(good);
  ASSERT_TRUE(settle());
  EXPECT_EQ(stateOf("GX010003.MOV"), "preview");
}

TEST_F(ReferenceTests, refuseWhatCannotServeAndKeepWhatWasThere) {
  add({good});
  const fs::path missing = folder / "missing.mov";
  EXPECT_EQ(refusalOf(raw),
            "RAW files aren't used as references. Pick a JPEG photo or a clip from the same "
            "camera.");
  EXPECT_EQ(refusalOf(cutPhoto),
            "That photo doesn't open either. Pick a photo that opens, taken on the same camera.");
  for (const fs::path& bad : {noIndex, missing}) {
    EXPECT_EQ(
        refusalOf(bad),
        "That clip doesn't open either. Pick a clip that plays, recorded on the same camera.");
  }
  EXPECT_EQ(model->reference(), good);
  EXPECT_FALSE(model->referenceChosenByUser());
}

TEST_F(ReferenceTests, followTheUsersChoiceForItsKindAlone) {
  add({noIndex, headlessPhoto, goodPhoto});
  EXPECT_EQ(stateOf("IMG_0003.JPG"), "preview");
  EXPECT_EQ(refusalOf(good), "");
  EXPECT_TRUE(model->referenceChosenByUser());
  ASSERT_TRUE(settle());
  EXPECT_EQ(stateOf("GX010003.MOV"), "preview");
  EXPECT_EQ(stateOf("IMG_0003.JPG"), "preview");
  EXPECT_EQ(model->reference(clip("IMG_0003.JPG")), std::nullopt);
  // What was chosen stays chosen, whatever else opens, until it is removed.
  add({copyOf(good, "GX010004.MOV")});
  EXPECT_EQ(model->reference(), good);
  model->clear();
  EXPECT_EQ(model->reference(), std::nullopt);
  EXPECT_FALSE(model->referenceChosenByUser());
}

TEST_F(ReferenceTests, startAnewWithAReferenceThatIsChosenWhileRepairsRun) {
  surroundings.previewer = heldPreviewer();
  startModel();
  const fs::path chosen = copyOf(good, "A.MOV");
  model->add({good, noIndex, cut});
  ASSERT_TRUE(until([&] { return held == 2; }));
  model->setReference(chosen);
  EXPECT_EQ(stateOf("GX010003.MOV"), "repairing");
  ASSERT_TRUE(until([&] { return held == 3; }));
  // The reference goes while it is in use; the repair has what it needs.
  model->remove(clip("GX010001.MOV").id);
  holding = false;
  ASSERT_TRUE(settle());
  EXPECT_EQ(stateOf("GX010003.MOV"), "preview");
  EXPECT_EQ(stateOf("GX010002.MOV"), "preview");
  EXPECT_EQ(road[clip("GX010003.MOV").id],
            (std::vector<std::string>{"checking", "missingIndex", "repairing", "missingIndex",
                                      "repairing", "preview"}));
  EXPECT_EQ(model->referencesInUse().front().first, chosen);
}

TEST_F(ReferenceTests, goWhenTheFileIsRemovedAndServeAgainWhenItReturns) {
  add({good, noIndex});
  model->setReference(good);
  ASSERT_TRUE(settle());
  model->remove(clip("GX010001.MOV").id);
  EXPECT_EQ(model->reference(), std::nullopt);
  EXPECT_FALSE(model->referenceChosenByUser());
  EXPECT_EQ(stateOf("GX010003.MOV"), "preview");
  add({good});
  EXPECT_EQ(model->reference(), good);
}

}  // namespace
}  // namespace tallowmark::testing
