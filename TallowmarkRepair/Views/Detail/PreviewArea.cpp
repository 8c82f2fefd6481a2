// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PreviewArea.h"

#include <QVBoxLayout>

#include "TallowmarkRepair/Views/Detail/PictureView.h"
#include "TallowmarkRepair/Views/Detail/PlayerView.h"
#include "TallowmarkRepair/Views/Detail/PreviewMessage.h"

namespace tallowmark {

PreviewArea::PreviewArea(QWidget* parent)
    : QWidget(parent),
      player_(new PlayerView(this)),
      picture_(new PictureView(this)),
      message_(new PreviewMessage(this)) {
  player_->setObjectName("player");
  picture_->setObjectName("picture");
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  for (QWidget* page : {static_cast<QWidget*>(player_), static_cast<QWidget*>(picture_),
                        static_cast<QWidget*>(message_)}) {
    column->addWidget(page);
  }
  showNothing();
}

void PreviewArea::setLeastHeight(int height) {
  player_->setMinimumHeight(height);
  picture_->setMinimumHeight(height);
}

void PreviewArea::turnTo(QWidget* page) {
  if (page != player_) player_->unload();
  if (page != picture_) picture_->unload();
  player_->setVisible(page == player_);
  picture_->setVisible(page == picture_);
  message_->setVisible(page == message_);
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

void PreviewArea::showNothing() {
  turnTo(nullptr);
}

}  // namespace tallowmark
