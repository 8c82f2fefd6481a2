// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/TextViews.h"

#include <QEvent>
#include <QTextDocument>
#include <QTextTable>
#include <QWheelEvent>
#include <cmath>

#include "TallowmarkUI/BrandColors.h"

namespace tallowmark {

namespace {

// A label is as wide as its longest word: names without a space are given places to break.
QString breakable(const QString& text) {
  constexpr qsizetype longest = 24;
  QString broken;
  qsizetype length = 0;
  for (const QChar character : text) {
    length = character.isSpace() ? 0 : length + 1;
    if (length > longest && !character.isLowSurrogate()) {
      broken += QChar(0x200B);
      length = 1;
    }
    broken += character;
  }
  return broken;
}

}  // namespace

ElidingLabel::ElidingLabel(QWidget* parent) : QLabel(parent) {
  setTextFormat(Qt::PlainText);
}

void ElidingLabel::setFullText(const QString& text) {
  fullText_ = text;
  setToolTip(text);
  setAccessibleName(text);
  updateGeometry();
  elide();
}

QSize ElidingLabel::minimumSizeHint() const {
  return {fontMetrics().averageCharWidth() * 8, QLabel::minimumSizeHint().height()};
}

QSize ElidingLabel::sizeHint() const {
  return {fontMetrics().horizontalAdvance(fullText_), QLabel::minimumSizeHint().height()};
}

void ElidingLabel::resizeEvent(QResizeEvent* event) {
  QLabel::resizeEvent(event);
  elide();
}

void ElidingLabel::changeEvent(QEvent* event) {
  QLabel::changeEvent(event);
  if (event->type() == QEvent::FontChange) elide();
}

void ElidingLabel::elide() {
  setText(fontMetrics().elidedText(fullText_, Qt::ElideMiddle, width()));
}

Paragraph::Paragraph(QWidget* parent) : QLabel(parent) {
  setTextFormat(Qt::PlainText);
  setWordWrap(true);
  setTextInteractionFlags(Qt::TextSelectableByMouse);
  QSizePolicy policy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  policy.setHeightForWidth(true);
  setSizePolicy(policy);
}

void Paragraph::setProse(const QString& text) {
  setText(breakable(text));
  setAccessibleName(text);
  setVisible(!text.isEmpty());
}

FactsView::FactsView(QWidget* parent) : QTextBrowser(parent) {
  setFrameShape(QFrame::NoFrame);
  setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
  setTabChangesFocus(true);
  setOpenLinks(false);
  setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
  document()->setDocumentMargin(0);
  viewport()->setAutoFillBackground(false);
}

void FactsView::setFacts(const std::vector<Fact>& facts) {
  setVisible(!facts.empty());
  if (facts != facts_) {
    facts_ = facts;
    rebuild();
  }
}

void FactsView::rebuild() {
  clear();
  if (facts_.empty()) {
    return;
  }
  QTextTableFormat format;
  format.setBorder(0);
  format.setCellPadding(3);
  format.setCellSpacing(0);
  format.setWidth(QTextLength(QTextLength::PercentageLength, 100));
  int nameWidth = 0;
  for (const Fact& fact : facts_) {
    nameWidth = std::max(nameWidth, fontMetrics().horizontalAdvance(fact.name));
  }
  // Names may take up to two fifths of the width and are broken then.
  const int column = std::min(nameWidth + 24, std::max(width(), 200) * 2 / 5);
  format.setColumnWidthConstraints(
      {QTextLength(QTextLength::FixedLength, column), QTextLength(QTextLength::VariableLength, 0)});
  QTextCursor cursor(document());
  QTextTable* table = cursor.insertTable(static_cast<int>(facts_.size()), 2, format);
  QTextCharFormat quiet;
  quiet.setForeground(BrandColors::of(palette()).quiet);
  for (int row = 0; row < table->rows(); ++row) {
    const Fact& fact = facts_[static_cast<std::size_t>(row)];
    table->cellAt(row, 0).firstCursorPosition().insertText(fact.name, quiet);
    table->cellAt(row, 1).firstCursorPosition().insertText(fact.value, {});
  }
  fitHeight();
}

void FactsView::resizeEvent(QResizeEvent* event) {
  QTextBrowser::resizeEvent(event);
  if (event->size().width() != event->oldSize().width()) rebuild();
}

void FactsView::changeEvent(QEvent* event) {
  QTextBrowser::changeEvent(event);
  if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) rebuild();
}

// The pane around it scrolls.
void FactsView::wheelEvent(QWheelEvent* event) {
  event->ignore();
}

void FactsView::fitHeight() {
  document()->setTextWidth(viewport()->width());
  setFixedHeight(static_cast<int>(std::ceil(document()->size().height())) + 2);
}

}  // namespace tallowmark
