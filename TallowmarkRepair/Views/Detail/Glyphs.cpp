// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/Glyphs.h"

#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <utility>

#include "TallowmarkUI/BrandColors.h"

namespace tallowmark::Glyphs {

using Tone = PaneText::Tone;

namespace {

// All is drawn in a square of that many units.
constexpr qreal units = 16;

QPen line(const QColor& colour, qreal width = 1.6) {
  return {colour, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin};
}

void drawLens(QPainter& painter, bool plus) {
  painter.drawEllipse(QPointF(7, 7), 4.6, 4.6);
  painter.drawLine(QPointF(10.5, 10.5), QPointF(14, 14));
  painter.drawLine(QPointF(5, 7), QPointF(9, 7));
  if (plus) painter.drawLine(QPointF(7, 5), QPointF(7, 9));
}

void drawSpeaker(QPainter& painter, const QColor& colour, bool muted) {
  const QPolygonF cone{{{2, 6}, {4.5, 6}, {8, 3}, {8, 13}, {4.5, 10}, {2, 10}}};
  painter.setBrush(colour);
  painter.drawPolygon(cone);
  painter.setBrush(Qt::NoBrush);
  if (muted) {
    painter.drawLine(QPointF(10.5, 6), QPointF(14.5, 10));
    painter.drawLine(QPointF(14.5, 6), QPointF(10.5, 10));
    return;
  }
  painter.drawArc(QRectF(7.5, 5, 5, 6), -60 * 16, 120 * 16);
  painter.drawArc(QRectF(7, 2.5, 8.5, 11), -55 * 16, 110 * 16);
}

void drawFit(QPainter& painter) {
  for (const auto& [x, y] : {std::pair{2.5, 3.5}, {13.5, 3.5}, {2.5, 12.5}, {13.5, 12.5}}) {
    painter.drawLine(QPointF(x, y), QPointF(x + (x < 8 ? 3 : -3), y));
    painter.drawLine(QPointF(x, y), QPointF(x, y + (y < 8 ? 3 : -3)));
  }
}

void draw(Glyph glyph, QPainter& painter, const QColor& colour) {
  painter.setPen(line(colour, 1.4));
  switch (glyph) {
    case Glyph::play:
      painter.setBrush(colour);
      painter.drawPolygon(QPolygonF{{{4.5, 3}, {13, 8}, {4.5, 13}}});
      break;
    case Glyph::pause:
      painter.fillRect(QRectF(4, 3, 3, 10), colour);
      painter.fillRect(QRectF(9, 3, 3, 10), colour);
      break;
    case Glyph::sound:
    case Glyph::muted:
      drawSpeaker(painter, colour, glyph == Glyph::muted);
      break;
    case Glyph::zoomIn:
    case Glyph::zoomOut:
      drawLens(painter, glyph == Glyph::zoomIn);
      break;
    case Glyph::fit:
      drawFit(painter);
      break;
  }
}

class GlyphEngine final : public QIconEngine {
 public:
  GlyphEngine(Glyph glyph, QPalette palette) : glyph_(glyph), palette_(std::move(palette)) {}

  void paint(QPainter* painter, const QRect& place, QIcon::Mode mode, QIcon::State) override {
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    painter->translate(place.topLeft());
    painter->scale(place.width() / units, place.height() / units);
    const auto group = mode == QIcon::Disabled ? QPalette::Disabled : QPalette::Active;
    draw(glyph_, *painter, palette_.color(group, QPalette::ButtonText));
    painter->restore();
  }

  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    QPixmap drawn(size);
    drawn.fill(Qt::transparent);
    QPainter painter(&drawn);
    paint(&painter, QRect(QPoint(), size), mode, state);
    return drawn;
  }

  QIconEngine* clone() const override { return new GlyphEngine(*this); }

 private:
  Glyph glyph_;
  QPalette palette_;
};

void drawMark(QPainter& painter, Tone tone) {
  switch (tone) {
    case Tone::fine:
    case Tone::ready:
      painter.drawPolyline(QPolygonF{{{4.7, 8.3}, {7, 10.6}, {11.3, 5.8}}});
      break;
    case Tone::attention:
      painter.drawLine(QPointF(8, 4.5), QPointF(8, 8.7));
      painter.drawPoint(QPointF(8, 11.4));
      break;
    case Tone::failed:
      painter.drawLine(QPointF(5.5, 5.5), QPointF(10.5, 10.5));
      painter.drawLine(QPointF(10.5, 5.5), QPointF(5.5, 10.5));
      break;
    case Tone::working:
      for (const qreal x : {4.8, 8.0, 11.2}) painter.drawPoint(QPointF(x, 8));
      break;
  }
}

}  // namespace

QIcon icon(Glyph glyph, const QPalette& palette) {
  return QIcon(new GlyphEngine(glyph, palette));
}

QColor colour(Tone tone, const QPalette& palette) {
  const BrandColors colors = BrandColors::of(palette);
  switch (tone) {
    case Tone::fine:
      return colors.good;
    case Tone::ready:
      return colors.accent;
    case Tone::attention:
      return colors.attention;
    case Tone::failed:
      return colors.problem;
    case Tone::working:
      break;
  }
  return colors.quiet;
}

QPixmap status(Tone tone, const QPalette& palette, int size, qreal devicePixelRatio) {
  QPixmap drawn(QSize(size, size) * devicePixelRatio);
  drawn.setDevicePixelRatio(devicePixelRatio);
  drawn.fill(Qt::transparent);
  QPainter painter(&drawn);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.scale(size / units, size / units);
  painter.setPen(Qt::NoPen);
  painter.setBrush(colour(tone, palette));
  painter.drawEllipse(QRectF(0.5, 0.5, 15, 15));
  painter.setBrush(Qt::NoBrush);
  painter.setPen(line(palette.color(QPalette::Window), 1.9));
  drawMark(painter, tone);
  return drawn;
}

}  // namespace tallowmark::Glyphs
