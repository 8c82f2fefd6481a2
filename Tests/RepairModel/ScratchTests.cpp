// SPDX-License-Identifier: GPL-3.0-or-later
#include "ModelTests.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class ScratchTests : public ModelTests {};

TEST_F(ScratchTests, leaveThePreviewsOfAnotherRunningProgramAlone) {
  add({cut});
  const auto shown = model->previewFile(clip("GX010002.MOV").id);
  ASSERT_TRUE(shown);
  EXPECT_EQ(shown->filename(), "GX010002-preview.MOV");
  {
    const RepairModel second(surroundings);
    EXPECT_NE(second.workDir(), model->workDir());
    EXPECT_TRUE(fs::exists(second.workDir()));
    EXPECT_TRUE(fs::exists(*shown));
  }
  EXPECT_TRUE(fs::exists(*shown));
}

TEST_F(ScratchTests, removeAtTheStartWhatNobodyOwns) {
  model.reset();
  EXPECT_TRUE(namesIn(surroundings.scratchParent).empty());
  // What a program leaves that was killed, this version's and another's.
  fs::create_directories(surroundings.scratchParent / "old" / "item");
  writeFile(surroundings.scratchParent / "old" / "item" / "a-preview.mp4", Bytes(10));
  writeFile(surroundings.scratchParent / "old.lock",
            Bytes{'9', '9', '9', '9', '9', '9', '9', '\n'});
  writeFile(surroundings.scratchParent / "b-preview.mp4", Bytes(10));
  startModel();
  const auto names = namesIn(surroundings.scratchParent);
  EXPECT_EQ(names.size(), 2U);
  EXPECT_EQ(names.front(), model->workDir().filename());
}

TEST_F(ScratchTests, goOnWhenTheFolderIsDeleted) {
  add({cut, raw});
  fs::remove_all(surroundings.scratchParent);
  EXPECT_EQ(model->previewFile(clip("GX010002.MOV").id), std::nullopt);
  model->save(model->savableIDs(), out);
  ASSERT_TRUE(settle());
  EXPECT_EQ(namesIn(out).size(), 2U);
  add({cutPhoto, good, noIndex});
  for (const char* name : {"IMG_0002.JPG", "GX010003.MOV"}) {
    EXPECT_TRUE(model->previewFile(clip(name).id)) << name;
  }
}

TEST_F(ScratchTests, doWithoutWhereNoFolderCanBe) {
  surroundings.scratchParent = "/proc/previews";
  startModel();
  add({cut, raw});
  for (const char* name : {"GX010002.MOV", "IMG_0004.NEF"}) {
    EXPECT_EQ(stateOf(name), "preview");
    EXPECT_EQ(model->previewFile(clip(name).id), std::nullopt);
  }
}

}  // namespace
}  // namespace tallowmark::testing
