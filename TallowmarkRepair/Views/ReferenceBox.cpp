// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/ReferenceBox.h"

#include <QEvent>
#include <QLabel>
#include <QPainter>
#include <QStyle>
#include <QVBoxLayout>

#include "TallowmarkRepair/Views/Detail/ActionBar.h"
#include "TallowmarkRepair/Views/Detail/TextViews.h"
#include "TallowmarkRepair/Views/FilePaths.h"
#include "TallowmarkUI/BrandColors.h"
#include "TallowmarkUI/Symbol.h"

namespace tallowmark {

namespace {

constexpr int starSize = 16;

QString factsOf(std::span<const RepairModel::ReferenceInUse> references) {
  QStringList facts;
  if (!references.empty() && references.front().second) {
    facts << QString::fromStdString(references.front().second->summary());
  }
  const auto more = std::ssize(references) - 1;
  if (more > 0) {
    facts << ReferenceBox::tr("and %1 more for other files").arg(more);
  }
  return facts.join('\n');
}

QString namesOf(std::span<const RepairModel::ReferenceInUse> references) {
  QStringList names;
  for (const auto& [file, info] : references) names << FilePaths::shown(file);
  return names.join('\n');
}

}  // namespace

ReferenceBox::ReferenceBox(Commands& commands, QWidget* parent) : QFrame(parent) {
  setObjectName("referenceBox");
  setAccessibleName(tr("Reference"));
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(14, 12, 14, 14);
  column->setSpacing(4);
  heading_ = addProse("referenceHeading", *column);
  heading_->setText(tr("Reference"));
  heading_->setIndent(starSize + 6);
  QFont strong = font();
  strong.setWeight(QFont::DemiBold);
  heading_->setFont(strong);
  name_ = new ElidingLabel(this);
  name_->setObjectName("referenceName");
  column->addWidget(name_);
  facts_ = addProse("referenceFacts", *column);
  request_ = addProse("referenceRequest", *column);
  request_->setText(
      tr("Add a clip that plays (or a photo that opens) from the same camera, with "
         "the same settings."));
  explanation_ = addProse("referenceExplanation", *column);
  column->addSpacing(6);
  column->addWidget(new ActionButton(*commands.chooseReference(), this));
  colorTexts();
  show({}, false);
}

QLabel* ReferenceBox::addProse(const char* name, QVBoxLayout& column) {
  auto* label = new QLabel(this);
  label->setObjectName(QLatin1String(name));
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  column.addWidget(label);
  return label;
}

void ReferenceBox::show(std::span<const RepairModel::ReferenceInUse> references,
                        bool chosenByUser) {
  const bool some = !references.empty();
  name_->setVisible(some);
  name_->setFullText(some ? FilePaths::shown(references.front().first.filename()) : QString());
  const QString facts = factsOf(references);
  facts_->setText(facts);
  facts_->setToolTip(namesOf(references));
  facts_->setVisible(!facts.isEmpty());
  request_->setVisible(!some);
  explanation_->setText(some ? tr("Matched to each file by camera file naming.")
                             : tr("Only needed for clips with a missing index or photos with a "
                                  "damaged header."));
  explanation_->setVisible(!some || !chosenByUser);
}

void ReferenceBox::colorTexts() {
  const QColor quiet = BrandColors::of(palette()).quiet;
  for (QLabel* label : {facts_, explanation_}) {
    QPalette colors = palette();
    colors.setColor(QPalette::WindowText, quiet);
    label->setPalette(colors);
  }
}

void ReferenceBox::changeEvent(QEvent* event) {
  QFrame::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) {
    colorTexts();
  }
}

void ReferenceBox::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const BrandColors colors = BrandColors::of(palette());
  painter.setPen(QPen(colors.line, 1));
  painter.setBrush(colors.card);
  painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 9, 9);
  const QRect line = heading_->geometry();
  const QRect place(line.left(), line.center().y() - starSize / 2, starSize, starSize);
  painter.drawPixmap(QStyle::visualRect(layoutDirection(), line, place).topLeft(),
                     pixmapOf(Symbol::reference, colors.accent, starSize, devicePixelRatioF()));
}

}  // namespace tallowmark
