// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/DetailView.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "TallowmarkRepair/Model/ItemTexts.h"
#include "TallowmarkRepair/Views/Detail/ActionBar.h"
#include "TallowmarkRepair/Views/Detail/Glyphs.h"
#include "TallowmarkRepair/Views/Detail/PaneFacts.h"
#include "TallowmarkRepair/Views/Detail/PreviewArea.h"
#include "TallowmarkRepair/Views/Detail/TextViews.h"

namespace tallowmark {

namespace {

QFont enlarged(QFont font, double points, QFont::Weight weight) {
  font.setPointSizeF(font.pointSizeF() + points);
  font.setWeight(weight);
  return font;
}

QString listed(const std::vector<QString>& sentences) {
  QStringList lines;
  for (const QString& sentence : sentences) lines << sentence;
  return lines.join(QLatin1Char('\n'));
}

// What the list knows of the parts before they are checked together.
std::vector<PartFacts> factsFromList(const Join& join, const std::vector<Clip>& clips) {
  std::vector<PartFacts> facts;
  for (const std::filesystem::path& part : join.parts) {
    const auto clip = std::find_if(clips.begin(), clips.end(),
                                   [&](const Clip& listed) { return listed.url == part; });
    const auto* healthy = clip == clips.end() ? nullptr : std::get_if<Clip::Healthy>(&clip->state);
    if (healthy == nullptr || !healthy->info) {
      return {};
    }
    facts.push_back({clip->size, healthy->info->seconds});
  }
  return facts;
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

JoinBackground backgroundOf(const Join& join, const RepairModel& model) {
  JoinBackground background{model.partFacts(join.id), model.missingPartsNote(join),
                            model.savedFile(join.id)};
  if (background.parts.empty()) {
    background.parts = factsFromList(join, model.clips());
  }
  return background;
}

// The original of a photo that opens is looked at as it is. Originals of clips are not: they are
// large, on cards that people want to take out.
void showPreview(const Clip& clip, const RepairModel& model, PreviewArea& area) {
  const auto preview = model.previewFile(clip.id);
  if (clip.is<Clip::Healthy>() && clip.kind() == Kind::photo) {
    area.showPicture(clip.url);
  } else if (preview && !clip.is<Clip::Checking>()) {
    clip.kind() == Kind::video ? area.showClip(*preview) : area.showPicture(*preview);
  } else if (clip.is<Clip::Preview>() || clip.is<Clip::Saved>()) {
    area.showMessage(ItemTexts::missingPreview(clip.kind()));
  } else {
    area.showNothing();
  }
}

void showPreview(const Join& join, const RepairModel& model, PreviewArea& area) {
  if (const auto preview = model.previewFile(join.id)) {
    area.showClip(*preview);
  } else if (join.is<Join::Preview>() || join.is<Join::Saved>()) {
    area.showMessage(DetailView::tr("No preview available. Saving still writes the joined clip."));
  } else {
    area.showNothing();
  }
}

/// How far work is: 0 where that is not known; nothing where none is done.
std::optional<double> progressOf(const Clip& clip) {
  if (const auto* repairing = std::get_if<Clip::Repairing>(&clip.state)) {
    return repairing->fraction;
  }
  return clip.is<Clip::Checking>() ? std::optional(0.0) : std::nullopt;
}

std::optional<double> progressOf(const Join& join) {
  if (const auto* joining = std::get_if<Join::Joining>(&join.state)) {
    return joining->fraction;
  }
  return join.is<Join::Checking>() ? std::optional(0.0) : std::nullopt;
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
  column->setContentsMargins(28, 22, 28, 12);
  column->setSpacing(8);
  addHeading(*column);
  addTexts(*column);
  progress_ = new QProgressBar(content);
  progress_->setObjectName("progress");
  progress_->setAccessibleName(tr("Progress"));
  preview_ = new PreviewArea(content);
  preview_->setObjectName("preview");
  parts_ = new FactsView(content);
  parts_->setObjectName("parts");
  parts_->setAccessibleName(tr("Parts"));
  facts_ = new FactsView(content);
  facts_->setObjectName("facts");
  facts_->setAccessibleName(tr("Facts"));
  column->addSpacing(4);
  column->addWidget(progress_);
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

void DetailView::addHeading(QVBoxLayout& column) {
  title_ = new ElidingLabel(this);
  title_->setObjectName("paneTitle");
  title_->setFont(enlarged(font(), 5, QFont::DemiBold));
  statusIcon_ = new QLabel(this);
  status_ = new QLabel(this);
  status_->setObjectName("paneStatus");
  status_->setFont(enlarged(font(), 0, QFont::DemiBold));
  auto* row = new QHBoxLayout;
  row->setSpacing(6);
  row->addWidget(statusIcon_);
  row->addWidget(status_, 1);
  column.addWidget(title_);
  column.addLayout(row);
  column.addSpacing(2);
}

void DetailView::addTexts(QVBoxLayout& column) {
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
  lossesIcon_ = new QLabel(this);
  auto* losses = new QHBoxLayout;
  losses->setSpacing(6);
  losses->addWidget(lossesIcon_, 0, Qt::AlignTop);
  losses->addWidget(losses_, 1);
  column.addWidget(lead_);
  column.addWidget(explanation_);
  column.addLayout(losses);
  column.addWidget(advice_);
}

void DetailView::refresh() {
  const Clip* clip = model_.selectedClip();
  const Join* join = model_.selectedJoin();
  pages_->setCurrentIndex(clip != nullptr || join != nullptr ? 1 : 0);
  if (clip != nullptr) {
    showClip(*clip);
  } else if (join != nullptr) {
    showJoin(*join);
  } else {
    preview_->showNothing();
  }
}

void DetailView::showClip(const Clip& clip) {
  const ClipBackground background = backgroundOf(clip, model_);
  title_->setFullText(QString::fromStdString(clip.url.filename().string()));
  showText(PaneTexts::of(clip, background));
  showProgress(progressOf(clip));
  showPreview(clip, model_, *preview_);
  parts_->setFacts({});
  facts_->setFacts(PaneFacts::of(clip, background));
  actions_->setActions(PaneActions::of(clip, background));
}

void DetailView::showJoin(const Join& join) {
  const JoinBackground background = backgroundOf(join, model_);
  title_->setFullText(QString::fromStdString(join.title()));
  showText(PaneTexts::of(join, background));
  showProgress(progressOf(join));
  showPreview(join, model_, *preview_);
  parts_->setFacts(PaneFacts::parts(join, background));
  facts_->setFacts(PaneFacts::of(join, background));
  actions_->setActions(PaneActions::of(join));
}

void DetailView::showText(const PaneText& text) {
  tone_ = text.tone;
  status_->setText(text.status);
  lead_->setProse(text.lead);
  explanation_->setProse(text.explanation);
  losses_->setProse(listed(text.losses));
  lossesIcon_->setVisible(!text.losses.empty());
  advice_->setProse(text.advice);
  showIcons();
}

void DetailView::showProgress(std::optional<double> fraction) {
  constexpr int hundred = 100;
  const int percent = static_cast<int>(fraction.value_or(0) * hundred);
  progress_->setRange(0, percent > 0 ? hundred : 0);
  progress_->setValue(percent);
  progress_->setVisible(fraction.has_value());
}

void DetailView::showIcons() {
  const auto draw = [this](QLabel& label, PaneText::Tone tone, int size) {
    label.setPixmap(Glyphs::status(tone, palette(), size, devicePixelRatioF()));
  };
  draw(*statusIcon_, tone_, 18);
  draw(*lossesIcon_, PaneText::Tone::attention, 14);
  QPalette tinted = palette();
  tinted.setColor(QPalette::WindowText, Glyphs::colour(tone_, palette()));
  status_->setPalette(tinted);
}

// The preview is what people look for: it is big where the pane is, and its controls are in sight
// where the pane is small. Facts that find no room below it are scrolled to.
void DetailView::resizeEvent(QResizeEvent* event) {
  constexpr double share = 0.4;
  constexpr int least = 180;
  QWidget::resizeEvent(event);
  preview_->setLeastHeight(std::max(least, static_cast<int>(height() * share)));
}

void DetailView::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange && lossesIcon_ != nullptr) showIcons();
}

}  // namespace tallowmark
