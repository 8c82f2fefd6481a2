// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <QLabel>
#include <QSlider>
#include <QTest>
#include <QToolButton>

#include "TallowmarkRepair/Views/Detail/PictureCanvas.h"
#include "TallowmarkRepair/Views/Detail/PictureView.h"
#include "TallowmarkRepair/Views/Detail/PlayerView.h"
#include "TallowmarkRepair/Views/Detail/VideoSurface.h"
#include "Tests/Support/Clips.h"
#include "Tests/Support/Files.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

constexpr int patience = 20'000;

// Whether this process has a file open; always false where the system does not tell.
bool isOpen(const fs::path& file) {
  std::error_code error;
  for (const auto& descriptor : fs::directory_iterator("/proc/self/fd", error)) {
    if (fs::read_symlink(descriptor, error) == file) return true;
  }
  return false;
}

class PlayerTests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!canMakeClips()) GTEST_SKIP() << "ffmpeg is not installed";
    ClipRecipe recipe;
    recipe.seconds = 4;
    fs::copy_file(makeClip(recipe), clip);
    player.show();
  }
  bool showsPicture() {
    return QTest::qWaitFor([&] { return surface().hasPicture() || player.hasFailed(); },
                           patience) &&
           !player.hasFailed();
  }
  VideoSurface& surface() { return *player.findChild<VideoSurface*>("videoSurface"); }
  QSlider& position() { return *player.findChild<QSlider*>("positionSlider"); }

  TemporaryFolder folder;
  fs::path clip = folder / "clip.mp4";
  PlayerView player;
};

TEST_F(PlayerTests, playPauseAndScrubFromTheKeyboard) {
  player.load(clip);
  ASSERT_TRUE(showsPicture());
  EXPECT_FALSE(player.isPlaying());
  ASSERT_TRUE(QTest::qWaitFor([&] { return position().maximum() >= 3'900; }, patience));
  QTest::keyClick(&surface(), Qt::Key_Space);
  EXPECT_TRUE(
      QTest::qWaitFor([&] { return player.isPlaying() && position().value() > 200; }, patience));
  EXPECT_EQ(player.findChild<QToolButton*>("playButton")->accessibleName(), "Pause");
  QTest::keyClick(&surface(), Qt::Key_Space);
  EXPECT_TRUE(QTest::qWaitFor([&] { return !player.isPlaying(); }, patience));
  QTest::keyClick(&surface(), Qt::Key_Home);
  EXPECT_TRUE(QTest::qWaitFor([&] { return position().value() < 100; }, patience));
  QTest::keyClick(&surface(), Qt::Key_Right);
  QTest::keyClick(&surface(), Qt::Key_Right);
  EXPECT_TRUE(QTest::qWaitFor(
      [&] { return player.findChild<QLabel*>("timeLabel")->text() == "0:02 / 0:04"; }, patience));
}

TEST_F(PlayerTests, leaveNoFileOpenBehind) {
  player.load(clip);
  ASSERT_TRUE(showsPicture());
  if (!isOpen(clip)) GTEST_SKIP() << "this system does not tell which files are open";
  player.togglePlay();
  player.unload();
  EXPECT_FALSE(isOpen(clip));
  EXPECT_FALSE(surface().hasPicture());
}

TEST_F(PlayerTests, openNothingForAClipThatIsLeftAtOnce) {
  player.load(clip);
  player.unload();
  EXPECT_FALSE(QTest::qWaitFor([&] { return surface().hasPicture(); }, 500));
}

TEST_F(PlayerTests, sayStillWhatCannotBePlayed) {
  player.load(writeFile(folder / "no.mp4", Bytes(5'000, 7)));
  EXPECT_TRUE(QTest::qWaitFor([&] { return player.hasFailed(); }, patience));
  EXPECT_TRUE(player.findChild<QWidget*>("openPreview")->isVisible());
  player.load(clip);
  EXPECT_TRUE(showsPicture());
}

TEST_F(PlayerTests, surviveWithoutAnythingToPlayWith) {
  if (qEnvironmentVariableIsSet("TALLOWMARK_TESTS_WITHOUT_PLUGINS")) {
    player.load(clip);
    ASSERT_TRUE(QTest::qWaitFor([&] { return player.hasFailed(); }, patience));
    EXPECT_EQ(player.findChild<QLabel*>("previewMessage")->text(),
              "The preview can't be played here.");
    return;
  }
  const ProcessResult child =
      run({"env", "TALLOWMARK_TESTS_WITHOUT_PLUGINS=1", fs::read_symlink("/proc/self/exe"),
           "--gtest_filter=PlayerTests.surviveWithoutAnythingToPlayWith"});
  EXPECT_EQ(child.exitCode, 0) << child.output << child.errors;
}

class PictureTests : public ::testing::Test {
 protected:
  PictureTests() {
    QImage image(800, 600, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    image.save(QString::fromStdString((folder / "a.png").string()));
    view.resize(400, 400);
    view.show();
  }
  TemporaryFolder folder;
  PictureView view;
};

TEST_F(PictureTests, areFittedAndZoomedByKeysAndWheel) {
  PictureCanvas& canvas = view.canvas();
  view.load(folder / "a.png");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !canvas.picture().isNull(); }, patience));
  EXPECT_TRUE(canvas.isFitted());
  EXPECT_NEAR(canvas.scale(), 0.5, 0.01);
  QTest::keyClick(&canvas, Qt::Key_1);
  EXPECT_EQ(canvas.scale(), 1);
  QTest::keyClick(&canvas, Qt::Key_Plus);
  EXPECT_NEAR(canvas.scale(), 1.25, 0.01);
  for (int i = 0; i < 30; ++i) QTest::keyClick(&canvas, Qt::Key_Plus);
  EXPECT_EQ(canvas.scale(), 8);
  QTest::keyClick(&canvas, Qt::Key_0);
  EXPECT_TRUE(canvas.isFitted());
  canvas.setFocus();
  QWheelEvent wheel(QPointF(50, 50), QPointF(50, 50), {}, {0, 240}, Qt::NoButton, Qt::NoModifier,
                    Qt::NoScrollPhase, false);
  QCoreApplication::sendEvent(canvas.viewport(), &wheel);
  EXPECT_NEAR(canvas.scale(), 0.5 * 1.25 * 1.25, 0.02);
}

TEST_F(PictureTests, saysSoWhenThePictureCannotBeRead) {
  view.load(writeFile(folder / "no.jpg", Bytes(500, 7)));
  EXPECT_TRUE(QTest::qWaitFor([&] { return view.findChild<QWidget*>("openPreview")->isVisible(); },
                              patience));
}

}  // namespace
}  // namespace tallowmark::testing
