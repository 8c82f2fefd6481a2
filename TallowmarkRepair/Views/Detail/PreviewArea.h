// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QWidget>
#include <filesystem>

namespace tallowmark {

class PictureView;
class PlayerView;
class PreviewMessage;

/// The middle of a pane: a player, a picture, a sentence in their place, or nothing. What is not
/// shown keeps no file open.
class PreviewArea final : public QWidget {
  Q_OBJECT

 public:
  explicit PreviewArea(QWidget* parent = nullptr);

  void showClip(const std::filesystem::path& clip);
  void showPicture(const std::filesystem::path& picture);
  void showMessage(const QString& sentence);
  void showNothing();

  /// Of a player or a picture with its controls.
  void setLeastHeight(int height);

 private:
  void turnTo(QWidget* page);

  PlayerView* player_;
  PictureView* picture_;
  PreviewMessage* message_;
};

}  // namespace tallowmark
