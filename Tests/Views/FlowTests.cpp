// SPDX-License-Identifier: GPL-3.0-or-later
#include <QApplication>
#include <QLabel>
#include <QMenuBar>
#include <QProxyStyle>
#include <QPushButton>

#include "WindowTests.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

class FlowTests : public WindowTests {
 protected:
  const Commands& commands() const { return window->commands(); }
  StepBar& steps() const { return find<StepBar>("stepBar"); }
  void press(Qt::Key key, Qt::KeyboardModifiers keys = {}) {
    QWidget* focus = QApplication::focusWidget();
    QTest::keyClick(focus != nullptr ? focus : window.get(), key, keys);
  }
  bool tabTo(const QWidget& wanted) {
    constexpr int enough = 40;
    for (int i = 0; i < enough && QApplication::focusWidget() != &wanted; ++i) press(Qt::Key_Tab);
    return QApplication::focusWidget() == &wanted;
  }
};

TEST_F(FlowTests, canBeRunByKeyboardAlone) {
  EXPECT_EQ(steps().current(), 0);
  panels.answer = {cut, cutPhoto, raw};
  ASSERT_TRUE(settleAfter([&] { press(Qt::Key_O, Qt::ControlModifier); }));
  EXPECT_EQ(steps().current(), 2);
  EXPECT_TRUE(list().hasFocus());
  press(Qt::Key_Tab);
  ASSERT_TRUE(tabTo(list())) << "there is a way round";
  press(Qt::Key_Home);
  EXPECT_EQ(model->selectedClip()->url, cut);
  press(Qt::Key_Down);
  EXPECT_EQ(model->selectedClip()->url, cutPhoto);
  press(Qt::Key_Down, Qt::ShiftModifier);

  EXPECT_EQ(commands().save()->text(), "Save 2 Copies…");
  panels.answer = {out};
  press(Qt::Key_S, Qt::ControlModifier);
  ASSERT_TRUE(settle());
  EXPECT_EQ(namesIn(out),
            (std::vector<std::string>{"IMG_0002 (repaired).JPG", "IMG_0004 (rescued).jpg"}));
  press(Qt::Key_S, Qt::ControlModifier | Qt::ShiftModifier);
  ASSERT_TRUE(settle());
  EXPECT_EQ(namesIn(out).size(), 3U);
  EXPECT_TRUE(until([&] { return steps().current() == 3 && !steps().isWorking(); }));
  EXPECT_EQ(textOf("stepStatus"),
            "Saved. The new copies are where you chose; the originals are untouched.");
  EXPECT_EQ(statusOf("IMG_0002.JPG").left(5), "Saved");

  press(Qt::Key_Home);
  ASSERT_TRUE(until([&] { return commands().openSaved()->isEnabled(); }));
  press(Qt::Key_E, Qt::ControlModifier);
  EXPECT_EQ(desktop.revealed, std::vector{out / "GX010002 (repaired).MOV"});
  press(Qt::Key_Return, Qt::ControlModifier);
  EXPECT_EQ(desktop.opened, std::vector{out / "GX010002 (repaired).MOV"});
  press(Qt::Key_Delete);
  EXPECT_EQ(model->clips().size(), 2U);
  EXPECT_EQ(model->selectedClip()->url, cutPhoto) << "the next row is selected";
}

TEST_F(FlowTests, enableWhatCanBeDone) {
  const auto enabled = [&] {
    QStringList names;
    for (const QAction* action : commands().findChildren<QAction*>()) {
      if (action->isEnabled()) names << action->objectName();
    }
    names.sort();
    return names.join(' ');
  };
  const QString always = "about add addFolder chooseReference ";
  EXPECT_EQ(enabled(), always + "joinParts quit");
  writeFile(folder / "GX010009.MP4", Bytes(100, 7));
  fs::create_directory(folder / "empty.MP4");
  ASSERT_TRUE(settleAfter([&] {
    drop(find("welcomeView"), {good, cut, folder / "GX010009.MP4"});
  }));
  click("GX010001.MOV");
  EXPECT_EQ(enabled(),
            always + "clear joinParts quit remove saveAll showInFileManager useAsReference");
  click("GX010002.MOV");
  EXPECT_EQ(enabled(),
            always + "clear joinParts quit remove save saveAll showInFileManager useAsReference");
  click("GX010009.MP4", Qt::ControlModifier);
  EXPECT_EQ(enabled(), always + "clear joinParts quit remove retry save saveAll showInFileManager");
  fs::copy_file(good, folder / "GX010009.MP4", fs::copy_options::overwrite_existing);
  commands().retry()->trigger();
  ASSERT_TRUE(settle());
  EXPECT_EQ(stateOf("GX010009.MP4"), "healthy");
  EXPECT_EQ(stateOf("GX010002.MOV"), "preview") << "what is well is not tried again";
  menuOf("GX010002.MOV", "Remove from List");
  EXPECT_EQ(model->clips().size(), 1U) << "all selected rows go";
  panels.answer = {good, cut};
  commands().joinParts()->trigger();
  ASSERT_TRUE(settle());
  EXPECT_EQ(model->joins().size(), 1U);
}

TEST_F(FlowTests, askOnceBeforeQuittingWhileWorkRuns) {
  surroundings.previewer = heldPreviewer();
  window.reset();
  startModel();
  openWindow();
  model->add({cut});
  ASSERT_TRUE(until([&] { return held == 1; }));
  const auto answer = [&](QMessageBox::ButtonRole role) {
    QMessageBox* question = box("quitQuestion");
    ASSERT_NE(question, nullptr);
    for (QAbstractButton* button : question->buttons()) {
      if (question->buttonRole(button) == role) QTest::mouseClick(button, Qt::LeftButton);
    }
    ASSERT_TRUE(until([&] { return window->findChild<QMessageBox*>() == nullptr; }));
  };
  EXPECT_FALSE(window->close());
  commands().quit()->trigger();
  EXPECT_EQ(window->findChildren<QMessageBox*>().size(), 1);
  answer(QMessageBox::RejectRole);
  EXPECT_TRUE(window->isVisible());
  EXPECT_FALSE(window->close());
  answer(QMessageBox::AcceptRole);
  EXPECT_FALSE(window->isVisible());
}

TEST_F(FlowTests, quitAtOnceWhenNothingIsLost) {
  commands().quit()->trigger();
  EXPECT_FALSE(window->isVisible());
}

TEST_F(FlowTests, tellTheEndOfALongBatchToWhoIsElsewhere) {
  surroundings.previewer = heldPreviewer();
  QWidget other;
  for (const bool inFront : {true, false}) {
    window.reset();
    startModel();
    openWindow(BatchWatch(std::chrono::milliseconds(0)));
    if (!inFront) {
      other.show();
      other.activateWindow();
      ASSERT_TRUE(QTest::qWaitForWindowActive(&other));
    }
    holding = true;
    model->add({cut});
    ASSERT_TRUE(until([&] { return steps().isWorking(); }));
    holding = false;
    ASSERT_TRUE(until([&] { return !model->isWorking() && !steps().isWorking(); }));
    EXPECT_EQ(desktop.notes.size(), inFront ? 0 : 1);
  }
  EXPECT_EQ(desktop.notes.value(0),
            "1 repaired file is ready. Check the previews, then save full-quality copies.");
}

/// A style whose animations the user turned off.
class StillStyle final : public QProxyStyle {
 public:
  int styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                QStyleHintReturn* data) const override {
    return hint == SH_Widget_Animation_Duration
               ? 0
               : QProxyStyle::styleHint(hint, option, widget, data);
  }
};

TEST_F(FlowTests, moveQuietlyWhileWorkRunsAndNotWhereMotionIsUnwanted) {
  StillStyle still;
  for (const bool moving : {true, false}) {
    if (!moving) steps().setStyle(&still);
    steps().setWorking(true);
    EXPECT_EQ(steps().isMoving(), moving);
    EXPECT_EQ(steps().accessibleName(), "Step 1 of 4: Add files, working");
    steps().setWorking(false);
    EXPECT_FALSE(steps().isMoving());
  }
  steps().setStyle(nullptr);
}

TEST_F(FlowTests, sayWhereUpdatesComeFromWhereThereIsNoUpdater) {
  EXPECT_FALSE(commands().checkForUpdates()->isEnabled());
  EXPECT_EQ(commands().checkForUpdates()->text(), whereUpdatesComeFrom());

  struct Controller final : UpdaterController {
    void observe(std::function<void(bool)> changed) override { tell = std::move(changed); }
    void checkForUpdates() override { ++checks; }
    std::function<void(bool)> tell;
    int checks = 0;
  };
  Controller* controller = nullptr;
  const fs::path bundle = folder / "Tallowmark Repair.app";
  fs::create_directories(bundle / "Contents");
  const std::string properties =
      "<plist version=\"1.0\"><dict><key>SUFeedURL</key><string>https://example.org/feed</string>"
      "<key>SUPublicEDKey</key><string>a2V5</string></dict></plist>";
  writeFile(bundle / "Contents" / "Info.plist", Bytes(properties.begin(), properties.end()));
  AppUpdater enabled(bundle, [&] {
    auto made = std::make_unique<Controller>();
    controller = made.get();
    return made;
  });
  MainWindow updated(*model, enabled, panels, desktop);
  QAction* check = updated.commands().checkForUpdates();
  EXPECT_EQ(check->text(), "Check for Updates…");
  EXPECT_FALSE(check->isEnabled());
  controller->tell(true);
  ASSERT_TRUE(until([&] { return check->isEnabled(); }));
  check->trigger();
  EXPECT_EQ(controller->checks, 1);
}

}  // namespace
}  // namespace tallowmark::testing
