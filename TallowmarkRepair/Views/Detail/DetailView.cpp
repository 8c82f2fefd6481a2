// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/DetailView.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

#include "TallowmarkRepair/Model/ItemTexts.h"
#include "TallowmarkRepair/Views/Detail/ActionBar.h"
#include "TallowmarkRepair/Views/Detail/Glyphs.h"
#include "TallowmarkRepair/Views/Detail/PaneFacts.h"
#include "TallowmarkRepair/Views/Detail/PreviewArea.h"
#include "TallowmarkRepair/Views/Detail/TextViews.h"

namespace tallowmark {

namespace {

constexpr int statusIconSize = 18;

QFont enlarged(QFont font, double points, QFont::Weight weight) {
  font.setPointSizeF(font.pointSizeF() + points);
  font.setWeight(weight);
  return font;
}

QString listed(const std::vector<QString>& sentences) {
  QStringList lines;
  for (const QString& sentence : sentences) lines << QStringLiteral("–  ") + sentence;
  return lines.join(QLatin1Char('\n'));
}

ClipBackground backgroundOf(const Clip& clip, const RepairModel& model) {
  ClipBackground background;
  if (const RepairDetails* details = model.repairDetails(clip.id)) {
    background.details = *details;
  }
  background.reference = model.reference(clip);
  background.isReference = model.reference() == clip.url;
  background.isSaving = model.isSaving(clip.id);
  background.savedCopy = model.savedFile(clip.id);
  background.splitPart = model.splitPart(clip.url);
  return background;
}

/// What the middle of a pane shows of a clip, by state.
struct ClipPreview {
  const Clip& clip;
  const RepairModel& model;
  PreviewArea& area;

  void operator()(const Clip::Checking&) const { area.showProgress(std::nullopt); }
  void operator()(const Clip::Repairing& state) const {
    area.showProgress(state.fraction > 0 ? std::optional(state.fraction) : std::nullopt);
  }
  void operator()(const Clip::Preview&) const { showRepaired(); }
  void operator()(const Clip::Saved&) const { showRepaired(); }
  void operator()(const Clip::Healthy&) const {
    clip.kind() == Kind::photo ? area.showPicture(clip.url) : area.showNothing();
  }
  template <class Other>
  void operator()(const Other&) const {
    area.showNothing();
  }

  void showRepaired() const {
    const auto preview = model.previewFile(clip.id);
    if (!preview) {
      area.showMessage(ItemTexts::missingPreview(clip.kind()));
    } else {
      clip.kind() == Kind::video ? area.showClip(*preview) : area.showPicture(*preview);
    }
  }
};

void showPreview(const Join& join, const RepairModel& model, PreviewArea& area) {
  const auto preview = model.previewFile(join.id);
  if (join.is<Join::Checking>()) {
    area.showProgress(std::nullopt);
  } else if (const auto* joining = std::get_if<Join::Joining>(&join.state)) {
    area.showProgress(joining->fraction > 0 ? std::optional(joining->fraction) : std::nullopt);
  } else if (!join.is<Join::Preview>() && !join.is<Join::Saved>()) {
    area.showNothing();
  } else if (preview) {
    area.showClip(*preview);
  } else {
    area.showMessage(DetailView::tr("No preview available. Saving still writes the joined clip."));
  }
}

}  // namespace

DetailView::DetailView(RepairModel& model, Commands& commands, QWidget* parent)
    : QWidget(parent), model_(model), commands_(commands), pages_(new QStackedWidget(this)) {
  setObjectName("detailView");
  auto* nothing = new QLabel(tr("Select a file to see what Repair found."), this);
  nothing->setObjectName("nothingSelected");
  nothing->setAlignment(Qt::AlignCenter);
  nothing->setWordWrap(true);
  nothing->setForegroundRole(QPalette::PlaceholderText);
  pages_->addWidget(nothing);
  pages_->addWidget(makePage());
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->addWidget(pages_);
  // Many items may change in one turn of the event loop.
  refreshing_.setSingleShot(true);
  refreshing_.setInterval(0);
  connect(&refreshing_, &QTimer::timeout, this, &DetailView::refresh);
  connect(&model, &RepairModel::changed, &refreshing_, qOverload<>(&QTimer::start));
  refresh();
}

QWidget* DetailView::makePage() {
  auto* page = new QWidget(this);
  auto* content = new QWidget(page);
  auto* column = new QVBoxLayout(content);
  column->setContentsMargins(28, 24, 28, 16);
  column->setSpacing(10);
  makeHeading(*column);
  preview_ = new PreviewArea(content);
  preview_->setObjectName("preview");
  parts_ = new FactsView(content);
  parts_->setObjectName("parts");
  parts_->setAccessibleName(tr("Parts"));
  facts_ = new FactsView(content);
  facts_->setObjectName("facts");
  facts_->setAccessibleName(tr("Facts"));
  column->addSpacing(4);
  column->addWidget(preview_, 1);
  column->addWidget(parts_);
  column->addWidget(facts_);
  column->addStretch(0);
  scroll_ = new QScrollArea(page);
  scroll_->setFrameShape(QFrame::NoFrame);
  scroll_->setWidgetResizable(true);
  scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  scroll_->setFocusPolicy(Qt::NoFocus);
  scroll_->setWidget(content);
  actions_ = new ActionBar(commands_, page);
  actions_->setObjectName("actions");
  auto* whole = new QVBoxLayout(page);
  whole->setContentsMargins(0, 0, 0, 0);
  whole->setSpacing(0);
  whole->addWidget(scroll_, 1);
  whole->addWidget(actions_);
  return page;
}

QWidget* DetailView::makeHeading(QVBoxLayout& column) {
  title_ = new ElidingLabel(this);
  title_->setObjectName("paneTitle");
  title_->setFont(enlarged(font(), 5, QFont::DemiBold));
  statusIcon_ = new QLabel(this);
  status_ = new QLabel(this);
  status_->setObjectName("paneStatus");
  status_->setFont(enlarged(font(), 0, QFont::DemiBold));
  auto* statusRow = new QHBoxLayout;
  statusRow->setSpacing(6);
  statusRow->addWidget(statusIcon_);
  statusRow->addWidget(status_, 1);
  const auto paragraph = [this](const char* name) {
    auto* made = new Paragraph(this);
    made->setObjectName(name);
    return made;
  };
  lead_ = paragraph("paneLead");
  lead_->setFont(enlarged(font(), 1.5, QFont::Normal));
  explanation_ = paragraph("paneExplanation");
  losses_ = paragraph("paneLosses");
  advice_ = paragraph("paneAdvice");
  column.addWidget(title_);
  column.addLayout(statusRow);
  column.addSpacing(4);
  for (QWidget* text : {lead_, explanation_, losses_, advice_}) column.addWidget(text);
  return title_;
}

void DetailView::refresh() {
  const Clip* clip = model_.selectedClip();
  const Join* join = model_.selectedJoin();
  pages_->setCurrentIndex(clip != nullptr || join != nullptr ? 1 : 0);
  if (clip != nullptr) {
    show(*clip);
  } else if (join != nullptr) {
    show(*join);
  } else {
    preview_->showNothing();
  }
}

void DetailView::show(const Clip& clip) {
  const ClipBackground background = backgroundOf(clip, model_);
  title_->setFullText(QString::fromStdString(clip.url.filename().string()));
  showText(PaneTexts::of(clip, background));
  std::visit(ClipPreview{clip, model_, *preview_}, clip.state);
  parts_->setFacts({});
  facts_->setFacts(PaneFacts::of(clip, background));
  actions_->setActions(PaneActions::of(clip, background));
}

void DetailView::show(const Join& join) {
  const JoinBackground background{model_.partFacts(join.id), model_.missingPartsNote(join),
                                  model_.savedFile(join.id)};
  title_->setFullText(QString::fromStdString(join.title()));
  showText(PaneTexts::of(join, background));
  showPreview(join, model_, *preview_);
  parts_->setFacts(PaneFacts::parts(join, background));
  facts_->setFacts(PaneFacts::of(join, background));
  actions_->setActions(PaneActions::of(join));
}

void DetailView::showText(const PaneText& text) {
  tone_ = text.tone;
  status_->setText(text.status);
  showStatusIcon();
  lead_->setProse(text.lead);
  explanation_->setProse(text.explanation);
  losses_->setProse(listed(text.losses));
  advice_->setProse(text.advice);
}

void DetailView::showStatusIcon() {
  statusIcon_->setPixmap(Glyphs::status(tone_, palette(), statusIconSize, devicePixelRatioF()));
  QPalette tinted = palette();
  tinted.setColor(QPalette::WindowText, Glyphs::colour(tone_, palette()));
  status_->setPalette(tinted);
}

void DetailView::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange && statusIcon_ != nullptr) showStatusIcon();
}

}  // namespace tallowmark
