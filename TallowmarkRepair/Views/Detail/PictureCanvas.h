// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAbstractScrollArea>
#include <QImage>

namespace tallowmark {

/// Shows a picture: fitted into the room there is, or enlarged and then moved about with mouse or
/// keys. The wheel zooms once the picture has the focus, so that scrolling past it does nothing.
class PictureCanvas final : public QAbstractScrollArea {
  Q_OBJECT

 public:
  explicit PictureCanvas(QWidget* parent = nullptr);

  /// Fitted at first.
  void setPicture(const QImage& picture);
  const QImage& picture() const { return picture_; }
  /// Pixels of the screen for each of the picture's; 1 is "100 %".
  double scale() const;
  bool isFitted() const { return fitted_; }
  QSize sizeHint() const override { return {320, 180}; }

 public slots:
  void zoomIn();
  void zoomOut();
  void fit();
  void showActualSize();

 signals:
  void scaleChanged();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  double fittingScale() const;
  /// Keeps what lies under that point of the viewport in its place.
  void setScale(double scale, QPointF around);
  void updateScrollBars();
  QPointF middle() const;

  QImage picture_;
  bool fitted_ = true;
  double scale_ = 1;
  QPoint dragged_;
};

}  // namespace tallowmark
