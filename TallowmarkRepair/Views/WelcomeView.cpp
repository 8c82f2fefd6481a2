// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/WelcomeView.h"

#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QPainter>
#include <QScrollArea>
#include <QStyle>
#include <QVBoxLayout>
#include <array>

#include "TallowmarkRepair/Views/Detail/ActionBar.h"
#include "TallowmarkUI/BrandColors.h"
#include "TallowmarkUI/Symbol.h"

namespace tallowmark {

namespace {

struct Tip {
  Symbol symbol;
  QString title;
  QString text;
};

std::array<Tip, 4> tips() {
  return {
      Tip{Symbol::boltSlash, WelcomeView::tr("Power cut mid-recording"),
          WelcomeView::tr("Battery died, card pulled, or the camera crashed while filming.")},
      Tip{Symbol::film, WelcomeView::tr("Video and photos"),
          WelcomeView::tr("MP4 and MOV (H.264, HEVC) from phones, cameras, drones and dashcams. "
                          "JPEG and RAW photos.")},
      Tip{Symbol::filmStack, WelcomeView::tr("Split recordings"),
          WelcomeView::tr("GoPro and DJI clips split at 4 GB are spotted and joined back into "
                          "one.")},
      Tip{Symbol::lock, WelcomeView::tr("Originals untouched"),
          WelcomeView::tr("Repair only reads your files and saves fixed copies where you choose.")},
  };
}

QLabel* prose(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setTextFormat(Qt::PlainText);
  label->setWordWrap(true);
  return label;
}

/// Shows a symbol in a tone of the palette.
class SymbolView final : public QWidget {
 public:
  SymbolView(Symbol symbol, int size, QWidget* parent)
      : QWidget(parent), symbol_(symbol), size_(size) {
    setFixedSize(size, size);
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.drawPixmap(
        0, 0, pixmapOf(symbol_, BrandColors::of(palette()).accent, size_, devicePixelRatioF()));
  }

 private:
  Symbol symbol_;
  int size_;
};

class TipView final : public QWidget {
 public:
  TipView(const Tip& tip, QWidget* parent) : QWidget(parent) {
    auto* layout = new QGridLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setHorizontalSpacing(14);
    layout->setVerticalSpacing(3);
    QLabel* title = prose(tip.title, this);
    QFont strong = title->font();
    strong.setWeight(QFont::DemiBold);
    title->setFont(strong);
    text_ = prose(tip.text, this);
    layout->addWidget(new SymbolView(tip.symbol, 26, this), 0, 0, 2, 1, Qt::AlignTop);
    layout->addWidget(title, 0, 1);
    layout->addWidget(text_, 1, 1, Qt::AlignTop);
    layout->setRowStretch(1, 1);
    layout->setColumnStretch(1, 1);
    colorText();
  }

 protected:
  void changeEvent(QEvent* event) override {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
      colorText();
    }
  }

 private:
  void colorText() {
    QPalette colors = palette();
    colors.setColor(QPalette::WindowText, BrandColors::of(palette()).quiet);
    text_->setPalette(colors);
  }

  QLabel* text_;
};

QWidget* makeInvitation(Commands& commands, QWidget* parent) {
  auto* invitation = new QWidget(parent);
  auto* column = new QVBoxLayout(invitation);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(10);
  QLabel* title = prose(WelcomeView::tr("Drop clips and photos that won't open"), invitation);
  title->setObjectName("welcomeTitle");
  QFont large = title->font();
  large.setPointSizeF(large.pointSizeF() * 1.7);
  large.setWeight(QFont::DemiBold);
  title->setFont(large);
  QLabel* text = prose(
      WelcomeView::tr("Add the broken files, plus one that opens from the same camera.\nRepair "
                      "uses the good one to rebuild the others."),
      invitation);
  text->setObjectName("welcomeText");
  for (QLabel* label : {title, text}) label->setAlignment(Qt::AlignCenter);
  auto* buttons = new QHBoxLayout;
  buttons->setSpacing(10);
  buttons->addStretch();
  auto* add = new ActionButton(*commands.add(), invitation);
  buttons->addWidget(add);
  buttons->addWidget(new ActionButton(*commands.addFolder(), invitation));
  buttons->addStretch();
  column->addWidget(new SymbolView(Symbol::drop, 52, invitation), 0, Qt::AlignHCenter);
  column->addWidget(title);
  column->addWidget(text);
  column->addSpacing(6);
  column->addLayout(buttons);
  invitation->setFocusProxy(add);
  return invitation;
}

QWidget* makeTips(QWidget* parent) {
  auto* area = new QWidget(parent);
  auto* grid = new QGridLayout(area);
  grid->setContentsMargins(0, 0, 0, 0);
  grid->setHorizontalSpacing(36);
  grid->setVerticalSpacing(26);
  int place = 0;
  for (const Tip& tip : tips()) {
    grid->addWidget(new TipView(tip, area), place / 2, place % 2);
    ++place;
  }
  grid->setColumnStretch(0, 1);
  grid->setColumnStretch(1, 1);
  return area;
}

}  // namespace

WelcomeView::WelcomeView(Commands& commands, QWidget* parent)
    : QWidget(parent), drop_(new FileDrop(*this)) {
  setObjectName("welcomeView");
  auto* page = new QWidget;
  page->setMaximumWidth(760);
  auto* column = new QVBoxLayout(page);
  column->setContentsMargins(32, 24, 32, 24);
  column->addStretch(2);
  QWidget* invitation = makeInvitation(commands, page);
  column->addWidget(invitation);
  column->addSpacing(44);
  column->addWidget(makeTips(page));
  column->addStretch(3);
  // Large texts in a small window: then there is something to scroll rather than to cut.
  auto* scroll = new QScrollArea(this);
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setWidgetResizable(true);
  scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  scroll->setAlignment(Qt::AlignCenter);
  scroll->setFocusPolicy(Qt::NoFocus);
  scroll->setWidget(page);
  auto* all = new QVBoxLayout(this);
  all->setContentsMargins(0, 0, 0, 0);
  all->addWidget(scroll);
  setFocusProxy(invitation);
}

}  // namespace tallowmark
