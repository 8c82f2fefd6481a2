// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QFutureWatcher>
#include <QTimer>
#include <QUrl>
#include <QWidget>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

class QAudioOutput;
class QLabel;
class QMediaPlayer;
class QSlider;
class QStackedWidget;
class QToolButton;

namespace tallowmark {

class PreviewMessage;
class VideoSurface;

/// Plays a small clip: play and pause, scrubbing, time, volume, all from the keyboard, too. Where
/// it cannot play, it says so and hands the clip to the desktop's own player.
class PlayerView final : public QWidget {
  Q_OBJECT

 public:
  explicit PlayerView(QWidget* parent = nullptr);
  ~PlayerView() override;

  /// Shows a clip at its start; the file is opened a moment later, so that one can walk through a
  /// list. What was shown before is given up.
  void load(const std::filesystem::path& clip);
  /// Gives up the clip; its file is closed when this returns.
  void unload();

  /// Whether the clip is there and runs.
  bool isPlaying() const;
  /// Whether something stands in the way of playing it here.
  bool hasFailed() const;

 public slots:
  void togglePlay();
  void toggleMuted();

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void changeEvent(QEvent* event) override;
  void hideEvent(QHideEvent* event) override;

 private:
  QWidget* makeControls();
  void open();
  void connectPlayer();
  void fail();
  void seekBy(qint64 distance);
  void showTime();
  void showIcons();

  std::filesystem::path clip_;
  QTimer opening_;
  QFutureWatcher<bool> loadingBackend_;
  // The output goes after the player that writes into it.
  std::unique_ptr<QAudioOutput> audio_;
  std::unique_ptr<QMediaPlayer> player_;
  QStackedWidget* pages_;
  VideoSurface* surface_;
  PreviewMessage* message_;
  QToolButton* play_ = nullptr;
  QToolButton* mute_ = nullptr;
  QSlider* position_ = nullptr;
  QSlider* volume_ = nullptr;
  QLabel* time_ = nullptr;
  // After what it is made of.
  QWidget* controls_;
};

}  // namespace tallowmark
