// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PictureCanvas.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace tallowmark {

namespace {

constexpr double zoomStep = 1.25;
constexpr double largestScale = 8;

}  // namespace

PictureCanvas::PictureCanvas(QWidget* parent) : QAbstractScrollArea(parent) {
  setFrameShape(QFrame::NoFrame);
  setFocusPolicy(Qt::StrongFocus);
  setAccessibleName(tr("Preview of the photo"));
}

void PictureCanvas::setPicture(const QImage& picture) {
  picture_ = picture;
  fit();
}

double PictureCanvas::scale() const {
  return fitted_ ? fittingScale() : scale_;
}

// Small pictures are not blown up. Pixels of the picture are pixels of the screen at 100 %.
double PictureCanvas::fittingScale() const {
  if (picture_.isNull()) {
    return 1;
  }
  const QSizeF room = QSizeF(maximumViewportSize()) * devicePixelRatioF();
  return std::min({room.width() / picture_.width(), room.height() / picture_.height(), 1.0});
}

void PictureCanvas::fit() {
  fitted_ = true;
  updateScrollBars();
  viewport()->update();
  emit scaleChanged();
}

void PictureCanvas::showActualSize() {
  setScale(1, middle());
}

void PictureCanvas::zoomIn() {
  setScale(scale() * zoomStep, middle());
}

void PictureCanvas::zoomOut() {
  setScale(scale() / zoomStep, middle());
}

QPointF PictureCanvas::middle() const {
  return QRectF(viewport()->rect()).center();
}

void PictureCanvas::setScale(double scale, QPointF around) {
  const double before = this->scale();
  const double smallest = fittingScale();
  if (scale <= smallest) {
    fit();
    return;
  }
  const QPointF offset(horizontalScrollBar()->value(), verticalScrollBar()->value());
  fitted_ = false;
  scale_ = std::min(scale, largestScale);
  updateScrollBars();
  const QPointF moved = (offset + around) * (scale_ / before) - around;
  horizontalScrollBar()->setValue(static_cast<int>(std::lround(moved.x())));
  verticalScrollBar()->setValue(static_cast<int>(std::lround(moved.y())));
  viewport()->update();
  emit scaleChanged();
}

void PictureCanvas::updateScrollBars() {
  const QSizeF shown = QSizeF(picture_.size()) * scale() / devicePixelRatioF();
  const auto prepare = [this](QScrollBar* bar, double length, int room) {
    bar->setRange(0, fitted_ ? 0 : std::max(0, static_cast<int>(std::ceil(length)) - room));
    bar->setPageStep(room);
    bar->setSingleStep(std::max(1, room / 10));
  };
  prepare(horizontalScrollBar(), shown.width(), viewport()->width());
  prepare(verticalScrollBar(), shown.height(), viewport()->height());
}

void PictureCanvas::paintEvent(QPaintEvent*) {
  QPainter painter(viewport());
  painter.fillRect(viewport()->rect(), palette().color(QPalette::Window).darker(108));
  if (!picture_.isNull()) {
    QRectF place(QPointF(), QSizeF(picture_.size()) * scale() / devicePixelRatioF());
    const QSizeF room = viewport()->size();
    place.moveTo(place.width() < room.width() ? (room.width() - place.width()) / 2
                                              : -horizontalScrollBar()->value(),
                 place.height() < room.height() ? (room.height() - place.height()) / 2
                                                : -verticalScrollBar()->value());
    painter.setRenderHint(QPainter::SmoothPixmapTransform, scale() < 2);
    painter.drawImage(place, picture_);
  }
  if (hasFocus()) {
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter.drawRect(viewport()->rect().adjusted(1, 1, -1, -1));
  }
}

void PictureCanvas::resizeEvent(QResizeEvent* event) {
  QAbstractScrollArea::resizeEvent(event);
  updateScrollBars();
  emit scaleChanged();
}

void PictureCanvas::wheelEvent(QWheelEvent* event) {
  constexpr double notch = 120;
  if (!hasFocus() && !event->modifiers().testFlag(Qt::ControlModifier)) {
    event->ignore();
    return;
  }
  setScale(scale() * std::pow(zoomStep, event->angleDelta().y() / notch), event->position());
  event->accept();
}

void PictureCanvas::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal:
      zoomIn();
      break;
    case Qt::Key_Minus:
      zoomOut();
      break;
    case Qt::Key_0:
      fit();
      break;
    case Qt::Key_1:
      showActualSize();
      break;
    default:
      QAbstractScrollArea::keyPressEvent(event);
  }
}

void PictureCanvas::mousePressEvent(QMouseEvent* event) {
  dragged_ = event->pos();
}

void PictureCanvas::mouseMoveEvent(QMouseEvent* event) {
  if (event->buttons().testFlag(Qt::LeftButton)) {
    const QPoint moved = event->pos() - dragged_;
    dragged_ = event->pos();
    horizontalScrollBar()->setValue(horizontalScrollBar()->value() - moved.x());
    verticalScrollBar()->setValue(verticalScrollBar()->value() - moved.y());
  }
}

void PictureCanvas::mouseDoubleClickEvent(QMouseEvent* event) {
  fitted_ ? setScale(1, event->position()) : fit();
}

}  // namespace tallowmark
