// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/VideoSurface.h"

#include <QMouseEvent>
#include <QPainter>
#include <QVideoFrame>
#include <QVideoSink>

namespace tallowmark {

VideoSurface::VideoSurface(QWidget* parent) : QWidget(parent) {
  setFocusPolicy(Qt::StrongFocus);
  setAccessibleName(tr("Preview of the clip"));
  setAttribute(Qt::WA_OpaquePaintEvent);
}

QVideoSink* VideoSurface::sink() {
  if (sink_ == nullptr) {
    sink_ = new QVideoSink(this);
    connect(sink_, &QVideoSink::videoFrameChanged, this, [this](const QVideoFrame& frame) {
      // A player sends an empty frame when it stops; the last picture is of more use.
      if (frame.isValid()) {
        picture_ = frame.toImage();
        update();
      }
    });
  }
  return sink_;
}

void VideoSurface::clear() {
  picture_ = {};
  update();
}

void VideoSurface::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), QColor(0x12, 0x14, 0x17));
  if (!picture_.isNull()) {
    const QSize size = picture_.size().scaled(this->size(), Qt::KeepAspectRatio);
    QRect place(QPoint(), size);
    place.moveCenter(rect().center());
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(place, picture_);
  }
  if (hasFocus()) {
    painter.setPen(QPen(palette().color(QPalette::Highlight), 2));
    painter.drawRect(rect().adjusted(1, 1, -1, -1));
  }
}

void VideoSurface::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton && rect().contains(event->pos())) {
    emit clicked();
  }
}

}  // namespace tallowmark
