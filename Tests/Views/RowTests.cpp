// SPDX-License-Identifier: GPL-3.0-or-later
#include <QAbstractItemModelTester>

#include "Chapters.h"
#include "TallowmarkRepair/Model/ItemTexts.h"
#include "TallowmarkRepair/Views/RowsModel.h"
#include "Tests/Support/Clips.h"
#include "WindowTests.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

TEST(RowTexts, sayEveryStateOfEveryKind) {
  const char* const video = "a.MP4";
  const char* const photo = "a.JPG";
  const char* const raw = "a.NEF";
  const ClipInfo clipFacts{"H.264", 1920, 1080, 25, 245, {}};
  const Clip::Summary clipResult{6'125, 245};
  using Audio = Clip::Summary::AudioOutcome;
  const Clip::Summary silent{6'125, 245, Audio::notRecoverable};
  const Clip::Summary incomplete{6'125, 245, Audio::recovered, {}, true};
  const Clip::Summary photoResult{.photo = Clip::PhotoFacts{4'000, 3'000}};
  const ItemTexts::RowFacts reference{.isReference = true};
  const ItemTexts::RowFacts part{.part = std::pair(2U, 3U)};
  struct Row {
    const char* file;
    Clip::State state;
    const char* text;
    ItemTexts::RowFacts facts = {};
  };
  const Row rows[] = {
      {video, Clip::Healthy{clipFacts}, "Plays · 4:05 · nothing to fix"},
      {video, Clip::Healthy{clipFacts}, "Plays · part 2 of 3 · nothing to fix", part},
      {video, Clip::Healthy{clipFacts}, "Plays · nothing to fix · reference", reference},
      {video, Clip::Healthy{}, "Plays · nothing to fix"},
      {photo, Clip::Healthy{ClipInfo::ofPhoto(40, 30, "JPEG")}, "Opens · 40×30 · nothing to fix"},
      {video, Clip::Truncated{3}, "Cut short · ready to repair"},
      {photo, Clip::Truncated{}, "Cut short · ready to repair"},
      {video, Clip::Repairing{0}, "Repairing…"},
      {photo, Clip::Repairing{0.999}, "Repairing… 99%"},
      {raw, Clip::Repairing{0.07}, "Repairing… 7%"},
      {video, Clip::Preview{clipResult}, "Repaired · 4:05"},
      {photo, Clip::Preview{photoResult}, "Repaired · 4000×3000"},
      {raw, Clip::Preview{photoResult}, "Rescued · 4000×3000"},
      {video, Clip::Preview{incomplete}, "Repaired · 4:05 · some sound lost"},
      {video, Clip::Saved{incomplete}, "Saved · 4:05 · some sound lost"},
      {video, Clip::Preview{silent}, "Repaired · 4:05 · without sound"},
      {video, Clip::Saved{clipResult}, "Saved · 4:05"},
      {photo, Clip::Saved{photoResult}, "Saved · 4000×3000"},
      {raw, Clip::Saved{photoResult}, "Saved · 4000×3000"},
      {video, Clip::Failed{"Why."}, "Couldn't repair"},
      {photo, Clip::Failed{"Why."}, "Couldn't repair"},
      {raw, Clip::Failed{"Why."}, "Couldn't repair"},
      {video, Clip::Checking{}, "Checking…"},
      {video, Clip::MissingIndex{}, "Won't open · needs reference"},
      {photo, Clip::MissingIndex{}, "Header damaged · needs reference"},
      {raw, Clip::RawFile{}, "RAW · picture can be rescued"},
      {video, Clip::NotAVideo{}, "Not a video Repair can read"},
      {photo, Clip::NotAVideo{}, "Not a JPEG Repair can read"},
  };
  for (const Row& row : rows) {
    const Clip clip{QUuid::createUuid(), row.file, 1, row.state};
    EXPECT_EQ(ItemTexts::rowStatus(clip, row.facts).toStdString(), row.text);
  }
  const ClipJoin::Result result{.parts = 3, .seconds = 3'723};
  const std::pair<Join::State, const char*> joins[] = {
      {Join::Incompatible{"Why."}, "Can't be joined"},
      {Join::Joining{0}, "Joining…"},
      {Join::Joining{0.129}, "Joining… 12%"},
      {Join::Preview{result}, "3 parts · 1:02:03 · ready to join"},
      {Join::Saved{result}, "Saved as one clip"},
      {Join::Failed{"Why."}, "Couldn't join"},
      {Join::Checking{}, "Checking 3 parts…"},
  };
  for (const auto& [state, text] : joins) {
    const Join join{QUuid::createUuid(), {"a", "b", "c"}, true, state};
    EXPECT_EQ(ItemTexts::rowStatus(join).toStdString(), text);
  }
}

class RowTests : public WindowTests {
 protected:
  std::vector<std::string> rows() const {
    std::vector<std::string> names;
    for (int i = 0; i < list().model()->rowCount(); ++i) {
      names.push_back(list().model()->index(i, 0).data().toString().toStdString());
    }
    return names;
  }
};

TEST_F(RowTests, putRecordingsUnderTheirHeadingAsTheyComeAndGo) {
  const QAbstractItemModelTester tester(list().model(),
                                        QAbstractItemModelTester::FailureReportingMode::Fatal);
  ClipRecipe recipe;
  recipe.seconds = 4;
  const auto chapters = cutIntoChapters(makeClip(recipe), folder.path(), 2);
  fs::rename(chapters[0], folder / "GH010042.MP4");
  fs::rename(chapters[1], folder / "GH020042.MP4");
  ASSERT_TRUE(settleAfter([&] { drop(find("welcomeView"), {cut, folder / "GH010042.MP4"}); }));
  EXPECT_EQ(rows(), (std::vector<std::string>{"GX010002.MOV", "GH010042.MP4"}));

  ASSERT_TRUE(settleAfter([&] { drop(find("clipsView"), {folder / "GH020042.MP4"}); }));
  ASSERT_TRUE(until([&] { return !model->joins().empty() && !model->isWorking(); }));
  EXPECT_EQ(rows(), (std::vector<std::string>{"Split recordings", "GH010042 – GH020042", "Files",
                                              "GX010002.MOV", "GH010042.MP4", "GH020042.MP4"}));
  EXPECT_EQ(statusOf("GH010042 – GH020042"), "2 parts · 0:04 · ready to join");
  EXPECT_TRUE(statusOf("GH020042.MP4").startsWith("Plays · part 2 of 2 · nothing to fix"));
  list().setFocus();
  QTest::keyClick(&list(), Qt::Key_Home);
  EXPECT_NE(model->selectedJoin(), nullptr) << "headings are passed by";
  QTest::keyClick(&list(), Qt::Key_Down);
  ASSERT_NE(model->selectedClip(), nullptr);
  EXPECT_EQ(model->selectedClip()->url, cut);
  click("Files");
  EXPECT_EQ(model->selectedClip()->url, cut);
  model->join({good, good});
  ASSERT_TRUE(settle());
  EXPECT_EQ(rows().size(), 7U);

  EXPECT_EQ(menuOf("GH010042 – GH020042", window->commands().showParts()->text()),
            (QStringList{window->commands().showParts()->text(), "Remove from List"}));
  EXPECT_EQ(desktop.revealed,
            (std::vector<fs::path>{folder / "GH010042.MP4", folder / "GH020042.MP4"}));
  menuOf("GH010042 – GH020042", "Remove from List");
  menuOf("GX010001 – GX010001", "Remove from List");
  EXPECT_EQ(rows().front(), "GX010002.MOV") << "what was removed stays away";
  window->commands().clear()->trigger();
  EXPECT_TRUE(rows().empty());
  EXPECT_TRUE(until([this] { return shows("welcomeView"); }));
}

}  // namespace
}  // namespace tallowmark::testing
