// SPDX-License-Identifier: GPL-3.0-or-later
#include <QAccessible>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalSpy>
#include <QTest>
#include <QTextBrowser>

#include "Chapters.h"
#include "ModelTests.h"
#include "TallowmarkRepair/Views/Detail/DetailView.h"
#include "TallowmarkRepair/Views/Detail/PictureCanvas.h"
#include "TallowmarkRepair/Views/Detail/VideoSurface.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class PaneTests : public ModelTests {
 protected:
  void SetUp() override {
    ModelTests::SetUp();
    if (IsSkipped()) return;
    ClipRecipe recipe;
    recipe.seconds = 4;
    const auto cuts = cutIntoChapters(makeClip(recipe), folder.path(), 2);
    fs::rename(cuts[0], folder / "GX010123.MP4");
    fs::rename(cuts[1], folder / "GX020123.MP4");
    showPane();
  }

  void showPane() {
    pane = std::make_unique<DetailView>(*model, commands);
    pane->resize(500, 430);
    pane->show();
  }
  void select(const std::string& name) {
    model->select(clip(name).id);
    ASSERT_TRUE(until([&] { return the("paneTitle").accessibleName().toStdString() == name; }));
  }
  template <class Widget = QWidget>
  Widget& the(const char* name) const {
    return *pane->findChild<Widget*>(name);
  }
  std::string text(const char* label) const { return the<QLabel>(label).text().toStdString(); }
  bool isShown(const char* name) const { return the(name).isVisible(); }
  bool shows(const std::string& lead) const {
    return until([&] { return text("paneLead").starts_with(lead); });
  }
  std::vector<std::string> buttons() const {
    std::vector<std::string> texts;
    for (const auto* button : the("actions").findChildren<QPushButton*>()) {
      texts.push_back(button->text().toStdString());
    }
    return texts;
  }

  Commands commands;
  std::unique_ptr<DetailView> pane;
};

TEST_F(PaneTests, showEveryStateWithItsPreview) {
  EXPECT_TRUE(isShown("nothingSelected"));
  writeFile(folder / "GX010009.MOV", Bytes(5'000, 1));
  add({good, cut, noIndex, folder / "GX010009.MOV", goodPhoto, cutPhoto, headlessPhoto, raw,
       folder / "GX010123.MP4", folder / "GX020123.MP4"});
  enum class Middle { nothing, player, picture };
  const struct {
    const char* name;
    const char* lead;
    Middle middle;
    std::vector<std::string> buttons;
  } table[] = {
      {"GX010001.MOV", "This clip plays.", Middle::nothing, {}},
      {"GX010002.MOV", "This clip plays again.", Middle::player, {"Save…"}},
      {"GX010003.MOV", "This clip plays again.", Middle::player, {"Choose Reference…", "Save…"}},
      {"GX010009.MOV", "There is no clip in", Middle::nothing, {"Try Again", "Remove from List"}},
      {"IMG_0001.JPG", "This photo opens.", Middle::picture, {"Use as Reference"}},
      {"IMG_0002.JPG", "This photo opens again.", Middle::picture, {"Save…"}},
      {"IMG_0003.JPG", "This photo opens again.", Middle::picture, {"Choose Reference…", "Save…"}},
      {"IMG_0004.NEF", "The picture in this RAW file is rescued.", Middle::picture, {"Save…"}},
      {"GX020123.MP4", "This clip plays.", Middle::nothing, {"Use as Reference"}},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.name);
    select(row.name);
    EXPECT_TRUE(shows(row.lead)) << text("paneLead");
    EXPECT_EQ(buttons(), row.buttons);
    EXPECT_EQ(isShown("player"), row.middle == Middle::player);
    EXPECT_EQ(isShown("picture"), row.middle == Middle::picture);
    EXPECT_TRUE(the<QTextBrowser>("facts").toPlainText().contains(row.name));
    if (row.middle == Middle::player) {
      EXPECT_TRUE(until([&] { return the<VideoSurface>("videoSurface").hasPicture(); }));
    } else if (row.middle == Middle::picture) {
      EXPECT_TRUE(until([&] { return !the<PictureCanvas>("pictureCanvas").picture().isNull(); }));
    }
  }
  model->select(model->joins().at(0).id);
  EXPECT_TRUE(shows("The camera split this recording into 2 files"));
  EXPECT_TRUE(isShown("player"));
  EXPECT_TRUE(the<QTextBrowser>("parts").toPlainText().contains("GX020123.MP4"));
  EXPECT_EQ(buttons(),
            (std::vector<std::string>{commands.showParts()->text().toStdString(), "Save…"}));
  model->select(std::nullopt);
  EXPECT_TRUE(until([&] { return isShown("nothingSelected"); }));
}

TEST_F(PaneTests, followAnItemFromCheckingToSaved) {
  surroundings.previewer = heldPreviewer();
  startModel();
  showPane();
  model->add({cut});
  ASSERT_TRUE(until([&] { return held > 0; }));
  select("GX010002.MOV");
  EXPECT_TRUE(shows("Repair is working on this clip."));
  EXPECT_TRUE(isShown("progress"));
  EXPECT_EQ(buttons(), std::vector<std::string>{});
  holding = false;
  EXPECT_TRUE(shows("This clip plays again."));
  EXPECT_FALSE(isShown("progress"));
  EXPECT_TRUE(the<QLabel>("paneLosses").text().contains("never reached the file"));
  const QSignalSpy saves(commands.save(), &QAction::triggered);
  the<QPushButton>("saveButton").click();
  EXPECT_EQ(saves.size(), 1);
  commands.save()->setEnabled(false);
  EXPECT_FALSE(the<QPushButton>("saveButton").isEnabled());
  model->save(model->savableIDs(), out);
  EXPECT_TRUE(shows("A copy that plays is saved in full quality."));
  EXPECT_TRUE(isShown("player"));
  EXPECT_TRUE(the<QTextBrowser>("facts").toPlainText().contains("GX010002 (repaired).MOV"));
}

TEST_F(PaneTests, sayWhereThereIsNoPreview) {
  surroundings.previewer = {};
  startModel();
  showPane();
  add({cut});
  select("GX010002.MOV");
  EXPECT_TRUE(until([&] {
    return the("preview").findChild<QLabel*>("previewMessage", Qt::FindChildrenRecursively) !=
               nullptr &&
           isShown("preview") && !isShown("player");
  }));
}

TEST_F(PaneTests, nameEverythingForAssistiveTechnology) {
  add({cut, goodPhoto});
  for (const char* name : {"GX010002.MOV", "IMG_0001.JPG"}) {
    select(name);
    ASSERT_TRUE(shows("This"));
  }
  for (QWidget* widget : pane->findChildren<QWidget*>()) {
    const auto* interface = QAccessible::queryAccessibleInterface(widget);
    const bool isControl = widget->focusPolicy() != Qt::NoFocus && interface != nullptr;
    if (isControl && widget->isVisible()) {
      EXPECT_FALSE(interface->text(QAccessible::Name).isEmpty())
          << widget->metaObject()->className() << ' ' << widget->objectName().toStdString();
    }
  }
}

TEST_F(PaneTests, fitLongNamesIntoTheSmallestPane) {
  const fs::path longName = folder / (std::string(120, 'W') + "旅行の思い出.MOV");
  fs::copy_file(cut, longName);
  add({longName});
  model->select(model->clips().front().id);
  ASSERT_TRUE(shows("This clip plays again."));
  const auto* scroll = pane->findChild<QScrollArea*>();
  EXPECT_TRUE(until([&] { return scroll->widget()->width() <= scroll->viewport()->width(); }));
  EXPECT_TRUE(the<QLabel>("paneTitle").text().contains(QStringLiteral("…")));
}

}  // namespace
}  // namespace tallowmark::testing
