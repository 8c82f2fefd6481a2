// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/ClipRow.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QHelpEvent>
#include <QPainter>
#include <QToolTip>

#include "TallowmarkRepair/Views/RowsModel.h"

namespace tallowmark {

namespace {

constexpr int symbolSize = 20;
constexpr int side = 12;
constexpr int gap = 10;
constexpr int above = 8;
constexpr int betweenLines = 2;

QFont statusFont(QFont font) {
  font.setPointSizeF(font.pointSizeF() * 0.92);
  return font;
}

QFont headingFont(QFont font) {
  font.setWeight(QFont::DemiBold);
  font.setPointSizeF(font.pointSizeF() * 0.92);
  return font;
}

int rowHeight(const QFont& font) {
  return 2 * above + QFontMetrics(font).height() + betweenLines +
         QFontMetrics(statusFont(font)).height();
}

void paintBackground(QPainter& painter, const QStyleOptionViewItem& option) {
  const bool selected = option.state.testFlag(QStyle::State_Selected);
  const bool hovered = option.state.testFlag(QStyle::State_MouseOver);
  const QRectF place = QRectF(option.rect).adjusted(4, 1, -4, -1);
  QColor color = option.palette.color(option.palette.currentColorGroup(), QPalette::Highlight);
  if (!selected) {
    color = option.palette.color(QPalette::WindowText);
    color.setAlphaF(hovered ? 0.06F : 0.0F);
  }
  painter.setPen(Qt::NoPen);
  painter.setBrush(color);
  painter.drawRoundedRect(place, 7, 7);
  // The row of the keyboard, where it is not the selected one.
  if (option.state.testFlag(QStyle::State_HasFocus) && !selected) {
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(BrandColors::of(option.palette).accent, 1.5));
    painter.drawRoundedRect(place.adjusted(1, 1, -1, -1), 6, 6);
  }
}

void paintProgress(QPainter& painter, const QRectF& line, double fraction, const QColor& color,
                   bool mirrored) {
  QColor track = color;
  track.setAlphaF(0.25F);
  painter.setPen(Qt::NoPen);
  painter.setBrush(track);
  painter.drawRoundedRect(line, 1.5, 1.5);
  QRectF done = line;
  done.setWidth(line.width() * std::clamp(fraction, 0.0, 1.0));
  if (mirrored) {
    done.moveRight(line.right());
  }
  painter.setBrush(color);
  painter.drawRoundedRect(done, 1.5, 1.5);
}

}  // namespace

void ClipRow::paint(QPainter* painter, const QStyleOptionViewItem& option,
                    const QModelIndex& index) const {
  painter->save();
  painter->setRenderHint(QPainter::Antialiasing);
  if (index.data(RowsModel::isHeadingRole).toBool()) {
    paintHeading(*painter, option, index);
  } else {
    paintBackground(*painter, option);
    paintItem(*painter, option, index);
  }
  painter->restore();
}

void ClipRow::paintHeading(QPainter& painter, const QStyleOptionViewItem& option,
                           const QModelIndex& index) {
  painter.setFont(headingFont(option.font));
  painter.setPen(BrandColors::of(option.palette).quiet);
  const auto alignment = QStyle::visualAlignment(option.direction, Qt::AlignLeft | Qt::AlignBottom);
  painter.drawText(option.rect.adjusted(side, 0, -side, -4), static_cast<int>(alignment),
                   index.data().toString());
}

void ClipRow::paintItem(QPainter& painter, const QStyleOptionViewItem& option,
                        const QModelIndex& index) {
  const bool selected = option.state.testFlag(QStyle::State_Selected);
  const BrandColors colors = BrandColors::of(option.palette);
  const QColor onHighlight = option.palette.color(QPalette::HighlightedText);
  const QColor text = selected ? onHighlight : option.palette.color(QPalette::Text);
  const QColor quiet = selected ? onHighlight : colors.quiet;
  const auto tone = static_cast<Tone>(index.data(RowsModel::toneRole).toInt());
  const QColor toneColor = selected ? onHighlight : colors.of(tone);
  const auto visual = [&](const QRect& logical) {
    return QStyle::visualRect(option.direction, option.rect, logical);
  };
  const auto alignment =
      static_cast<int>(QStyle::visualAlignment(option.direction, Qt::AlignLeft | Qt::AlignVCenter));

  const QRect row = option.rect.adjusted(side, above, -side, -above);
  const int nameHeight = QFontMetrics(option.font).height();
  const QRect symbolPlace(row.left(), row.top() + (row.height() - symbolSize) / 2, symbolSize,
                          symbolSize);
  const auto symbol = static_cast<Symbol>(index.data(RowsModel::symbolRole).toInt());
  painter.drawPixmap(
      visual(symbolPlace).topLeft(),
      pixmapOf(symbol, toneColor, symbolSize, painter.device()->devicePixelRatioF()));

  const QRect words = row.adjusted(symbolSize + gap, 0, 0, 0);
  const QRect name(words.left(), words.top(), words.width(), nameHeight);
  painter.setFont(option.font);
  painter.setPen(text);
  painter.drawText(
      visual(name), alignment,
      option.fontMetrics.elidedText(index.data().toString(), Qt::ElideMiddle, name.width()));
  const QRect status(words.left(), name.bottom() + 1 + betweenLines, words.width(),
                     words.bottom() - name.bottom() - betweenLines);
  const QFont small = statusFont(option.font);
  painter.setFont(small);
  painter.setPen(tone == Tone::quiet || tone == Tone::good ? quiet : toneColor);
  painter.drawText(visual(status), alignment,
                   QFontMetrics(small).elidedText(index.data(RowsModel::statusRole).toString(),
                                                  Qt::ElideRight, status.width()));
  const QVariant fraction = index.data(RowsModel::fractionRole);
  if (fraction.isValid()) {
    const QRect line(words.left(), option.rect.bottom() - 4, words.width(), 3);
    paintProgress(painter, visual(line), fraction.toDouble(), toneColor,
                  option.direction == Qt::RightToLeft);
  }
}

QSize ClipRow::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
  const int height = index.data(RowsModel::isHeadingRole).toBool()
                         ? QFontMetrics(headingFont(option.font)).height() + 16
                         : rowHeight(option.font);
  // As wide as the list, whatever that is.
  return {0, height};
}

bool ClipRow::helpEvent(QHelpEvent* event, QAbstractItemView* view,
                        const QStyleOptionViewItem& option, const QModelIndex& index) {
  if (event->type() != QEvent::ToolTip || index.data(RowsModel::isHeadingRole).toBool()) {
    return QStyledItemDelegate::helpEvent(event, view, option, index);
  }
  QToolTip::showText(
      event->globalPos(),
      index.data(Qt::ToolTipRole).toString() + "\n" + index.data(RowsModel::statusRole).toString(),
      view);
  return true;
}

}  // namespace tallowmark
