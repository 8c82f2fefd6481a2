// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QStackedWidget>
#include <filesystem>
#include <optional>

#include "TallowmarkRepair/Model/Clip.h"

class QLabel;
class QProgressBar;

namespace tallowmark {

class PictureView;
class PlayerView;
class PreviewMessage;

/// The middle of a pane: a player, a picture, the progress of work, or nothing.
class PreviewArea final : public QStackedWidget {
  Q_OBJECT

 public:
  explicit PreviewArea(QWidget* parent = nullptr);

  void showClip(const std::filesystem::path& clip);
  void showPicture(const std::filesystem::path& picture);
  void showMessage(const QString& sentence);
  /// Without a fraction the end is not known.
  void showProgress(std::optional<double> fraction);
  void showNothing();

 private:
  void turnTo(QWidget* page);

  PlayerView* player_;
  PictureView* picture_;
  PreviewMessage* message_;
  QWidget* progress_;
  QProgressBar* bar_;
};

}  // namespace tallowmark
