// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PreviewArea.h"

#include <QProgressBar>
#include <QVBoxLayout>

#include "TallowmarkRepair/Views/Detail/PictureView.h"
#include "TallowmarkRepair/Views/Detail/PlayerView.h"
#include "TallowmarkRepair/Views/Detail/PreviewMessage.h"

namespace tallowmark {

namespace {

constexpr int roomForPictures = 220;

}  // namespace

PreviewArea::PreviewArea(QWidget* parent)
    : QStackedWidget(parent),
      player_(new PlayerView(this)),
      picture_(new PictureView(this)),
      message_(new PreviewMessage(this)),
      progress_(new QWidget(this)),
      bar_(new QProgressBar(progress_)) {
  player_->setObjectName("player");
  picture_->setObjectName("picture");
  bar_->setObjectName("progress");
  bar_->setAccessibleName(tr("Progress"));
  auto* column = new QVBoxLayout(progress_);
  column->setContentsMargins(0, 8, 0, 8);
  column->addWidget(bar_);
  column->addStretch();
  for (QWidget* page : {static_cast<QWidget*>(player_), static_cast<QWidget*>(picture_),
                        static_cast<QWidget*>(message_), progress_}) {
    addWidget(page);
  }
  setVisible(false);
}

// What is not shown keeps no file open.
void PreviewArea::turnTo(QWidget* page) {
  if (page != player_) player_->unload();
  if (page != picture_) picture_->unload();
  if (page != nullptr) setCurrentWidget(page);
  const bool isPictures = page == player_ || page == picture_;
  setMinimumHeight(isPictures ? roomForPictures : 0);
  setSizePolicy(QSizePolicy::Preferred, isPictures ? QSizePolicy::Expanding : QSizePolicy::Maximum);
  setVisible(page != nullptr);
}

void PreviewArea::showClip(const std::filesystem::path& clip) {
  turnTo(player_);
  player_->load(clip);
}

void PreviewArea::showPicture(const std::filesystem::path& picture) {
  turnTo(picture_);
  picture_->load(picture);
}

void PreviewArea::showMessage(const QString& sentence) {
  turnTo(message_);
  message_->say(sentence);
}

void PreviewArea::showProgress(std::optional<double> fraction) {
  constexpr int hundred = 100;
  turnTo(progress_);
  bar_->setRange(0, fraction ? hundred : 0);
  bar_->setValue(fraction ? static_cast<int>(*fraction * hundred) : 0);
}

void PreviewArea::showNothing() {
  turnTo(nullptr);
}

}  // namespace tallowmark
