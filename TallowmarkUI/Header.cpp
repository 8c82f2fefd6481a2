// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/Header.h"

#include <QAccessible>
#include <QEvent>
#include <QGridLayout>
#include <QPainter>
#include <QVBoxLayout>

#include "TallowmarkUI/BrandColors.h"

namespace tallowmark {

namespace {

QLabel* makeLabel(const QString& text, const char* name, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setObjectName(QLatin1String(name));
  label->setTextFormat(Qt::PlainText);
  return label;
}

}  // namespace

Header::Header(const QString& name, const QString& tagline, const QStringList& steps,
               QWidget* parent)
    : QWidget(parent),
      name_(makeLabel(name, "applicationName", this)),
      tagline_(makeLabel(tagline, "tagline", this)),
      steps_(new StepBar(steps, this)),
      status_(makeLabel({}, "stepStatus", this)) {
  QFont large = font();
  large.setPointSizeF(large.pointSizeF() * 1.5);
  large.setWeight(QFont::DemiBold);
  name_->setFont(large);
  // What fits no window is said on two lines rather than cut.
  tagline_->setWordWrap(true);
  status_->setWordWrap(true);
  status_->setAccessibleName(tr("Status"));

  auto* who = new QVBoxLayout;
  who->setSpacing(2);
  who->addWidget(name_);
  who->addWidget(tagline_);
  auto* where = new QVBoxLayout;
  where->setSpacing(5);
  where->addWidget(steps_, 0, Qt::AlignLeft);
  where->addWidget(status_);
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(20, 14, 20, 14);
  layout->setSpacing(28);
  layout->addLayout(who, 4);
  layout->addLayout(where, 5);
  colorTexts();
}

void Header::setStatus(const QString& sentence) {
  if (status_->text() == sentence) {
    return;
  }
  status_->setText(sentence);
  status_->setAccessibleDescription(sentence);
  QAccessibleEvent changed(status_, QAccessible::DescriptionChanged);
  QAccessible::updateAccessibility(&changed);
}

void Header::colorTexts() {
  const QColor quiet = BrandColors::of(palette()).quiet;
  for (QLabel* label : {tagline_, status_}) {
    QPalette colors = label->palette();
    if (colors.color(QPalette::WindowText) != quiet) {
      colors.setColor(QPalette::WindowText, quiet);
      label->setPalette(colors);
    }
  }
}

void Header::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) {
    colorTexts();
  }
}

void Header::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.fillRect(rect(), BrandColors::of(palette()).card);
  painter.fillRect(0, height() - 1, width(), 1, BrandColors::of(palette()).line);
}

}  // namespace tallowmark
