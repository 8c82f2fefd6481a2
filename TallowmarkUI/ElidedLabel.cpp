// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/ElidedLabel.h"

#include <QHelpEvent>
#include <QPainter>
#include <QStyle>
#include <QToolTip>

namespace tallowmark {

ElidedLabel::ElidedLabel(const QString& text, QWidget* parent) : QLabel(text, parent) {
  setTextFormat(Qt::PlainText);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize ElidedLabel::minimumSizeHint() const {
  return {fontMetrics().averageCharWidth() * 8, QLabel::minimumSizeHint().height()};
}

void ElidedLabel::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  const QRect place = contentsRect();
  const QString shown = fontMetrics().elidedText(text(), Qt::ElideMiddle, place.width());
  const auto alignment = QStyle::visualAlignment(layoutDirection(), this->alignment());
  style()->drawItemText(&painter, place, static_cast<int>(alignment), palette(), isEnabled(), shown,
                        foregroundRole());
}

bool ElidedLabel::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip &&
      fontMetrics().horizontalAdvance(text()) > contentsRect().width()) {
    QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), text(), this);
    return true;
  }
  return QLabel::event(event);
}

}  // namespace tallowmark
