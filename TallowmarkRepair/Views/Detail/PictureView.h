// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QFutureWatcher>
#include <QImage>
#include <QWidget>
#include <filesystem>

class QLabel;
class QStackedWidget;
class QToolButton;

namespace tallowmark {

class PictureCanvas;
class PreviewMessage;

/// A picture that can be zoomed, with buttons for it. It is read on another thread, and no larger
/// than screens are.
class PictureView final : public QWidget {
  Q_OBJECT

 public:
  explicit PictureView(QWidget* parent = nullptr);

  void load(const std::filesystem::path& picture);
  void unload();

  PictureCanvas& canvas() const { return *canvas_; }

 protected:
  void changeEvent(QEvent* event) override;

 private:
  QToolButton* addButton(const char* name, const QString& text, const QString& key,
                         void (PictureCanvas::*slot)());
  void showPicture();
  void showScale();
  void showIcons();

  std::filesystem::path file_;
  QFutureWatcher<QImage> reading_;
  QStackedWidget* pages_;
  PictureCanvas* canvas_;
  PreviewMessage* message_;
  QWidget* controls_;
  QLabel* scale_;
  QToolButton* out_;
  QToolButton* in_;
  QToolButton* fit_;
  QToolButton* actual_;
};

}  // namespace tallowmark
