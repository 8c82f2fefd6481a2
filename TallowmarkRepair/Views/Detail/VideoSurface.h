// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QImage>
#include <QWidget>

class QVideoSink;

namespace tallowmark {

/// Paints the pictures of a player, whole and centred. The clips shown are small; painting them
/// needs no graphics card and no window of its own.
class VideoSurface final : public QWidget {
  Q_OBJECT

 public:
  explicit VideoSurface(QWidget* parent = nullptr);

  /// Where a player puts its pictures. Owned here; made when it is first asked for, with what this
  /// system has to play clips.
  QVideoSink* sink();
  /// Goes back to black.
  void clear();
  bool hasPicture() const { return !picture_.isNull(); }
  QSize sizeHint() const override { return {320, 180}; }

 signals:
  void clicked();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;

 private:
  QVideoSink* sink_ = nullptr;
  QImage picture_;
};

}  // namespace tallowmark
