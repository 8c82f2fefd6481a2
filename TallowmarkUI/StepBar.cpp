// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/StepBar.h"

#include <QLocale>
#include <QPainter>
#include <QStyle>
#include <QTimerEvent>
#include <algorithm>

#include "TallowmarkUI/BrandColors.h"
#include "TallowmarkUI/Motion.h"

namespace tallowmark {

namespace {

constexpr int discSize = 22;
constexpr int gapInside = 7;
constexpr int gapBetween = 34;
constexpr int margin = 3;
constexpr int frameMilliseconds = 40;
constexpr int degreesPerFrame = 9;

QFont fontOf(const QWidget& widget, bool present) {
  QFont font = widget.font();
  font.setWeight(present ? QFont::DemiBold : QFont::Normal);
  return font;
}

void paintTick(QPainter& painter, const QRectF& disc) {
  const QPointF middle = disc.center();
  painter.drawPolyline(QPolygonF(
      {middle + QPointF(-4.2, 0.4), middle + QPointF(-1.2, 3.4), middle + QPointF(4.4, -3.2)}));
}

}  // namespace

StepBar::StepBar(QStringList steps, QWidget* parent) : QWidget(parent), steps_(std::move(steps)) {
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
  setObjectName("stepBar");
  describe();
}

void StepBar::setCurrent(int step) {
  step = std::clamp(step, 0, static_cast<int>(steps_.size()) - 1);
  if (current_ != step) {
    current_ = step;
    describe();
    update();
  }
}

void StepBar::setWorking(bool working) {
  if (working_ != working) {
    working_ = working;
    describe();
    moveOrRest();
    update();
  }
}

void StepBar::describe() {
  const QString step =
      tr("Step %1 of %2: %3").arg(current_ + 1).arg(steps_.size()).arg(steps_.value(current_));
  setAccessibleName(working_ ? tr("%1, working").arg(step) : step);
}

void StepBar::moveOrRest() {
  if (working_ && isVisible() && !Motion::isReduced(*this)) {
    motion_.start(frameMilliseconds, this);
  } else {
    motion_.stop();
  }
}

void StepBar::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  moveOrRest();
}

void StepBar::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  motion_.stop();
}

void StepBar::timerEvent(QTimerEvent* event) {
  if (event->timerId() != motion_.timerId()) {
    QWidget::timerEvent(event);
    return;
  }
  angle_ = (angle_ + degreesPerFrame) % 360;
  update(place(current_));
}

bool StepBar::isDone(int step) const {
  return step < current_ || (current_ == steps_.size() - 1 && !working_);
}

int StepBar::widthOf(int step) const {
  // Room for the widest form, so that nothing moves when the flow goes on.
  const QFontMetrics metrics(fontOf(*this, true));
  return discSize + gapInside + metrics.horizontalAdvance(steps_[step]) + 2;
}

QRect StepBar::place(int step) const {
  int left = margin;
  for (int i = 0; i < step; ++i) left += widthOf(i) + gapBetween;
  const QRect logical(left, 0, widthOf(step), height());
  return QStyle::visualRect(layoutDirection(), rect(), logical);
}

QSize StepBar::sizeHint() const {
  int width = 2 * margin;
  for (int i = 0; i < steps_.size(); ++i) width += widthOf(i) + (i > 0 ? gapBetween : 0);
  return {width, std::max(discSize, fontMetrics().height()) + 2 * margin};
}

void StepBar::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const BrandColors colors = BrandColors::of(palette());
  for (int step = 0; step < steps_.size(); ++step) {
    paintStep(painter, step);
    if (step == 0) {
      continue;
    }
    const QRect before = place(step - 1);
    const QRect after = place(step);
    const bool mirrored = layoutDirection() == Qt::RightToLeft;
    const int from = mirrored ? after.right() + 8 : before.right() + 8;
    const int to = mirrored ? before.left() - 8 : after.left() - 8;
    painter.setPen(QPen(step <= current_ ? colors.accent : colors.line, 1.5));
    painter.drawLine(QPointF(from, height() / 2.0), QPointF(to, height() / 2.0));
  }
}

void StepBar::paintStep(QPainter& painter, int step) const {
  const BrandColors colors = BrandColors::of(palette());
  const bool present = step == current_;
  const bool done = isDone(step);
  const QRect area = place(step);
  const bool mirrored = layoutDirection() == Qt::RightToLeft;
  const qreal left = mirrored ? area.right() + 1 - discSize : area.left();
  const QRectF disc =
      QRectF(left, (height() - discSize) / 2.0, discSize, discSize).adjusted(1, 1, -1, -1);

  const bool filled = done || present;
  painter.setPen(QPen(filled ? colors.accent : colors.line, 1.5));
  painter.setBrush(filled ? QBrush(colors.accent) : QBrush(Qt::NoBrush));
  if (present && working_) {
    painter.setPen(QPen(colors.line, 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawEllipse(disc);
    painter.setPen(QPen(colors.accent, 2, Qt::SolidLine, Qt::RoundCap));
    painter.drawArc(disc, -angle_ * 16, 110 * 16);
  } else {
    painter.drawEllipse(disc);
  }

  painter.setFont(fontOf(*this, true));
  if (done) {
    painter.setPen(QPen(colors.onAccent, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    paintTick(painter, disc);
  } else {
    const QColor number = present ? (working_ ? colors.accent : colors.onAccent) : colors.quiet;
    painter.setPen(number);
    painter.drawText(disc, Qt::AlignCenter, locale().toString(step + 1));
  }

  painter.setFont(fontOf(*this, present));
  painter.setPen(present ? palette().color(QPalette::WindowText) : colors.quiet);
  const int beside = discSize + gapInside;
  const QRect words = mirrored ? area.adjusted(0, 0, -beside, 0) : area.adjusted(beside, 0, 0, 0);
  const Qt::Alignment side = mirrored ? Qt::AlignRight : Qt::AlignLeft;
  painter.drawText(words, static_cast<int>(side | Qt::AlignVCenter), steps_[step]);
}

}  // namespace tallowmark
