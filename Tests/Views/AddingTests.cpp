// SPDX-License-Identifier: GPL-3.0-or-later
#include <QApplication>
#include <QDropEvent>
#include <QFileOpenEvent>
#include <QLabel>
#include <QMimeData>
#include <QPushButton>

#include "TallowmarkRepair/Views/OpenRequests.h"
#include "WindowTests.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class AddingTests : public WindowTests {};

TEST_F(AddingTests, takeFilesAndFoldersDroppedOnEitherPane) {
  EXPECT_TRUE(shows("welcomeView"));
  EXPECT_EQ(textOf("welcomeTitle"), "Drop clips and photos that won't open");
  EXPECT_EQ(textOf("welcomeText"),
            "Add the broken files, plus one that opens from the same camera.\nRepair uses the good "
            "one to rebuild the others.");
  fs::create_directory(folder / "card");
  fs::copy_file(raw, folder / "card" / "IMG_0009.NEF");
  const fs::path latin1 = folder / "f\xfc.JPG";
  fs::copy_file(goodPhoto, latin1);
  ASSERT_TRUE(settleAfter([&] { drop(find("welcomeView"), {cut, folder / "card"}); }));
  EXPECT_TRUE(shows("clipsView"));
  EXPECT_EQ(model->clips().size(), 2U);
  ASSERT_TRUE(settleAfter([&] { drop(find("clipsView"), {cutPhoto, cut, latin1}); }));
  ASSERT_EQ(model->clips().size(), 4U);
  EXPECT_EQ(model->clips()[3].url, latin1);
  EXPECT_TRUE(model->clips()[3].is<Clip::Healthy>());
}

TEST_F(AddingTests, leaveWhatIsNoFile) {
  QMimeData data;
  data.setText("https://example.org/clip.mp4");
  data.setUrls({QUrl("https://example.org/clip.mp4")});
  QDragEnterEvent enter({20, 20}, Qt::CopyAction, &data, Qt::LeftButton, {});
  enter.ignore();
  QApplication::sendEvent(&find("welcomeView"), &enter);
  EXPECT_FALSE(enter.isAccepted());
}

TEST_F(AddingTests, askWithTheirOwnSentences) {
  using Choice = PanelRequest::Choice;
  struct Row {
    QAction* command;
    const char* message;
    const char* prompt;
    Choice choice;
    QStringList takes;
    QStringList leaves;
  };
  const Commands& commands = window->commands();
  constexpr auto adding =
      "Choose the clips or photos that won't open, or a folder of them. Include one that does "
      "open, from the same camera.";
  const Row rows[] = {
      {commands.add(), adding, "Add", Choice::files, {"*.mp4", "*.MOV", "*.jpg", "*.nef"}, {}},
      {commands.addFolder(), adding, "Add", Choice::folder, {}, {}},
      {commands.chooseReference(),
       "Choose a clip that plays or a photo that opens, from the same camera with the same "
       "settings.",
       "Use as Reference",
       Choice::oneFile,
       {"*.mp4", "*.JPG"},
       {"*.nef"}},
      {commands.joinParts(),
       "Choose the parts of one recording. They're joined in name order, without re-encoding.",
       "Join",
       Choice::files,
       {"*.MP4"},
       {"*.jpg"}},
      {commands.saveAll(),
       "Choose where to save the repaired copies. Your originals aren't changed.",
       "Save Here",
       Choice::folderToSaveIn,
       {},
       {}},
  };
  ASSERT_TRUE(settleAfter([&] { drop(find("welcomeView"), {cut}); }));
  for (const Row& row : rows) {
    row.command->trigger();
    const PanelRequest& asked = panels.asked.back();
    EXPECT_EQ(asked.message, row.message);
    EXPECT_EQ(asked.prompt, row.prompt);
    EXPECT_EQ(asked.choice, row.choice) << row.message;
    const QString filters = asked.filters.join(' ');
    for (const QString& pattern : row.takes) EXPECT_TRUE(filters.contains(pattern)) << row.message;
    for (const QString& pattern : row.leaves) EXPECT_FALSE(filters.contains(pattern));
    EXPECT_EQ(filters.isEmpty(), row.takes.isEmpty());
  }
  EXPECT_EQ(model->clips().size(), 1U) << "cancelled panels do nothing";
}

TEST_F(AddingTests, openWhatTheSystemAsksToBeOpened) {
  OpenRequests requests(*model);
  qApp->installEventFilter(&requests);
  ASSERT_TRUE(settleAfter([&] {
    QFileOpenEvent event(QUrl::fromLocalFile(QString::fromStdString(cut.string())));
    QApplication::sendEvent(qApp, &event);
  }));
  qApp->removeEventFilter(&requests);
  EXPECT_EQ(stateOf("GX010002.MOV"), "preview");
}

TEST_F(AddingTests, takeReferencesThatServeAndSayWhyOthersDont) {
  const fs::path other = folder / "DJI_0001.MOV";
  fs::rename(good, other);
  ASSERT_TRUE(settleAfter([&] { drop(find("welcomeView"), {noIndex}); }));
  EXPECT_EQ(statusOf("GX010003.MOV"), "Won't open · needs reference");
  EXPECT_TRUE(shows("referenceRequest"));
  EXPECT_EQ(textOf("referenceRequest"),
            "Add a clip that plays (or a photo that opens) from the same camera, with the same "
            "settings.");
  EXPECT_EQ(textOf("referenceExplanation"),
            "Only needed for clips with a missing index or photos with a damaged header.");
  const std::pair<fs::path, const char*> refused[] = {
      {raw,
       "RAW files aren't used as references. Pick a JPEG photo or a clip from the same camera."},
      {headlessPhoto,
       "That photo doesn't open either. Pick a photo that opens, taken on the same camera."},
      {noIndex,
       "That clip doesn't open either. Pick a clip that plays, recorded on the same camera."},
  };
  for (const auto& [file, sentence] : refused) {
    panels.answer = {file};
    QTest::mouseClick(find("referenceBox").findChild<QPushButton*>(), Qt::LeftButton);
    QMessageBox* alert = box("referenceAlert");
    ASSERT_NE(alert, nullptr);
    EXPECT_EQ(alert->text(), "Can't use that clip");
    EXPECT_EQ(alert->informativeText(), sentence);
    EXPECT_FALSE(model->reference());
    alert->close();
    ASSERT_TRUE(until([&] { return window->findChild<QMessageBox*>() == nullptr; }));
  }
  panels.answer = {other};
  window->commands().chooseReference()->trigger();
  ASSERT_TRUE(settle());
  EXPECT_EQ(stateOf("GX010003.MOV"), "preview");
  ASSERT_TRUE(until([&] { return shows("referenceName"); }));
  EXPECT_TRUE(textOf("referenceFacts").startsWith("H.264 · 320×240"));
  EXPECT_FALSE(shows("referenceRequest"));
  EXPECT_FALSE(shows("referenceExplanation"));
}

TEST_F(AddingTests, sayThatAReferenceWasMatched) {
  ASSERT_TRUE(settleAfter([&] { drop(find("welcomeView"), {noIndex, good}); }));
  ASSERT_TRUE(until([&] { return statusOf("GX010001.MOV").endsWith(" · reference"); }));
  EXPECT_EQ(textOf("referenceExplanation"), "Matched to each file by camera file naming.");
  EXPECT_EQ(find<QLabel>("referenceName").text(), "GX010001.MOV");
  EXPECT_EQ(menuOf("GX010001.MOV", "Use as Reference").first(), "Use as Reference");
  EXPECT_TRUE(model->referenceChosenByUser());
  ASSERT_TRUE(settle());
  EXPECT_TRUE(until([&] { return !shows("referenceExplanation"); }));
}

}  // namespace
}  // namespace tallowmark::testing
