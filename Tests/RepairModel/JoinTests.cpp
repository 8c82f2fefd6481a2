// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>

#include "Chapters.h"
#include "ModelTests.h"
#include "TallowmarkRepair/Model/ItemTexts.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;
using Road = std::vector<std::string>;

class JoinTests : public ModelTests {
 protected:
  void SetUp() override {
    ModelTests::SetUp();
    if (IsSkipped()) return;
    ClipRecipe recipe;
    recipe.seconds = 6;
    const std::vector<fs::path> cuts = cutIntoChapters(makeClip(recipe), folder.path(), 3);
    for (std::size_t i = 0; i < cuts.size(); ++i) {
      chapters.push_back(folder / ("GX0" + std::to_string(i + 1) + "0123.MP4"));
      fs::rename(cuts[i], chapters.back());
    }
  }
  const Join& only() const { return model->joins().at(0); }
  std::string failure() const {
    const auto* failed = std::get_if<Join::Failed>(&only().state);
    return failed == nullptr ? nameOf(only().state) : failed->text;
  }

  std::vector<fs::path> chapters;
};

TEST_F(JoinTests, findARecordingOnceInWhateverOrderItsChaptersCome) {
  add({chapters[2], good, chapters[0], chapters[1]});
  ASSERT_EQ(model->joins().size(), 1U);
  EXPECT_TRUE(only().foundAutomatically);
  EXPECT_EQ(only().parts, chapters);
  EXPECT_EQ(only().title(), "GX010123 – GX030123");
  EXPECT_EQ(model->splitPart(chapters[1]), std::pair(std::size_t{2}, std::size_t{3}));
  EXPECT_EQ(model->splitPart(good), std::nullopt);
  EXPECT_TRUE(model->previewFile(only().id));
  EXPECT_EQ(ItemTexts::rowStatus(only()).toStdString(), "3 parts · 0:06 · ready to join");
  EXPECT_EQ(ItemTexts::introduction(only()).toStdString(),
            "The camera split this recording into 3 files to stay under the card's 4 GB file "
            "limit. Repair joins them back into one clip.");

  writeFile(out / "GX010123 (joined).MP4", Bytes{1});
  model->select(only().id);
  EXPECT_EQ(model->selectedJoin(), &only());
  model->save({only().id}, out);
  EXPECT_EQ(nameOf(only().state), "joining");
  ASSERT_TRUE(settle());
  EXPECT_EQ(road[only().id], (Road{"checking", "preview", "joining", "saved"}));
  EXPECT_EQ(model->step(), 4);
  EXPECT_EQ(*model->savedFile(only().id), out / "GX010123 (joined 2).MP4");
  EXPECT_EQ(decodingComplaints(out / "GX010123 (joined 2).MP4"), "");
  EXPECT_EQ(std::get<Join::Saved>(only().state).result.videoFrames, 150);
  model->findSplitRecordings();
  EXPECT_EQ(model->joins().size(), 1U);
}

TEST_F(JoinTests, growARecordingWhoseChaptersAreAddedOneByOne) {
  add({chapters[1], chapters[2]});
  ASSERT_LE(model->joins().size(), 1U);
  add({chapters[0]});
  ASSERT_EQ(model->joins().size(), 1U);
  EXPECT_EQ(only().parts, chapters);
  EXPECT_EQ(nameOf(only().state), "preview");
}

TEST_F(JoinTests, makeOneOfTwoThatTurnOutToBeOneRecording) {
  add({chapters[1], chapters[2]});
  model->remove(clip("GX030123.MP4").id);
  add({chapters[0]});
  ASSERT_EQ(model->joins().size(), 2U);
  model->select(model->joins()[1].id);
  add({chapters[2]});
  ASSERT_EQ(model->joins().size(), 1U);
  EXPECT_EQ(only().parts, chapters);
  EXPECT_EQ(nameOf(only().state), "preview");
  EXPECT_EQ(model->selectedJoin(), &only());
}

TEST_F(JoinTests, offerNoMoreWhatTheUserRemoved) {
  add(chapters);
  model->remove(only().id);
  EXPECT_TRUE(model->joins().empty());
  add({good});
  model->remove(clip("GX010001.MOV").id);
  EXPECT_TRUE(model->joins().empty());
  // Until its files come anew, or somebody looks for it.
  model->remove(clip("GX030123.MP4").id);
  add({chapters[2]});
  ASSERT_EQ(model->joins().size(), 1U);
  EXPECT_EQ(only().parts, chapters);
  model->remove(only().id);
  model->findSplitRecordings();
  EXPECT_EQ(model->joins().size(), 1U);
  ASSERT_TRUE(settle());
}

TEST_F(JoinTests, joinTheUsersPartsInNameOrder) {
  model->join({chapters[1], chapters[0]});
  EXPECT_EQ(nameOf(only().state), "checking");
  EXPECT_EQ(ItemTexts::rowStatus(only()).toStdString(), "Checking 2 parts…");
  EXPECT_EQ(ItemTexts::introduction(only()).toStdString(),
            "Repair joins these 2 clips into one, in the order shown.");
  ASSERT_TRUE(settle());
  EXPECT_EQ(only().parts, (std::vector<fs::path>{chapters[0], chapters[1]}));
  EXPECT_EQ(nameOf(only().state), "preview");
  model->remove(only().id);
  EXPECT_TRUE(model->joins().empty());
  EXPECT_TRUE(until([&] { return namesIn(model->workDir()).empty(); }));
}

TEST_F(JoinTests, sayWhyPartsDoNotJoin) {
  model->join({chapters[0], good});
  ASSERT_TRUE(settle());
  EXPECT_EQ(nameOf(only().state), "incompatible");
  EXPECT_EQ(ItemTexts::rowStatus(only()).toStdString(), "Can't be joined");
  model->clear();
  model->join({chapters[0]});
  ASSERT_TRUE(settle());
  EXPECT_EQ(std::get<Join::Incompatible>(only().state).text, "Joining needs at least two clips.");
}

TEST_F(JoinTests, refuseAPartThatIsStillBeingRepaired) {
  surroundings.previewer = heldPreviewer();
  startModel();
  model->add({good, noIndex});
  ASSERT_TRUE(until([&] { return held == 1; }));
  model->join({noIndex, good});
  ASSERT_TRUE(until([&] { return nameOf(only().state) != "checking"; }));
  EXPECT_EQ(failure(), "GX010003.MOV doesn't open. Repair it first, then join the repaired copy.");
  EXPECT_EQ(ItemTexts::rowStatus(only()).toStdString(), "Couldn't join");
  EXPECT_EQ(stateOf("GX010003.MOV"), "repairing");
  holding = false;
  ASSERT_TRUE(settle());
  EXPECT_EQ(stateOf("GX010003.MOV"), "preview");
  fs::remove(noIndex);
  fs::copy_file(good, noIndex);
  model->retry(only().id);
  ASSERT_TRUE(settle());
  EXPECT_EQ(road[only().id], (Road{"checking", "failed", "checking", "preview"}));
}

TEST_F(JoinTests, failTheSaveOfPartsThatChanged) {
  add(chapters);
  fs::resize_file(chapters[1], fs::file_size(chapters[1]) / 2);
  model->save({only().id}, out);
  ASSERT_TRUE(settle());
  EXPECT_EQ(nameOf(only().state), "failed");
  EXPECT_TRUE(namesIn(out).empty());
}

TEST(JoinTexts, speakOfProgressAndEnd) {
  const auto statusIn = [](Join::State state) {
    return ItemTexts::rowStatus({QUuid(), {"A.MP4"}, true, std::move(state)}).toStdString();
  };
  EXPECT_EQ(statusIn(Join::Joining{0}), "Joining…");
  EXPECT_EQ(statusIn(Join::Joining{0.999}), "Joining… 99%");
  EXPECT_EQ(statusIn(Join::Saved{}), "Saved as one clip");
  EXPECT_EQ(statusIn(Join::Preview{{2, 3723, 0, 0, 0, 0}}), "2 parts · 1:02:03 · ready to join");
  EXPECT_EQ((Join{QUuid(), {"a/A.MP4"}}.title()), "A");
  EXPECT_EQ((Join{}.title()), "");
  EXPECT_EQ(ItemTexts::missingPreview(Kind::video).toStdString(),
            "No preview available. Saving still writes the repaired clip.");
  EXPECT_EQ(ItemTexts::missingPreview(Kind::raw).toStdString(),
            "No preview available. Saving still writes the repaired photo.");
}

}  // namespace
}  // namespace tallowmark::testing
