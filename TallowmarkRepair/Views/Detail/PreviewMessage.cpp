// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PreviewMessage.h"

#include <QDesktopServices>
#include <QUrl>
#include <QVBoxLayout>

namespace tallowmark {

PreviewMessage::PreviewMessage(QWidget* parent)
    : QWidget(parent), sentence_(new QLabel(this)), open_(new QPushButton(tr("Open"), this)) {
  sentence_->setObjectName("previewMessage");
  sentence_->setAlignment(Qt::AlignCenter);
  sentence_->setWordWrap(true);
  sentence_->setTextFormat(Qt::PlainText);
  open_->setObjectName("openPreview");
  open_->setToolTip(tr("Open it with the program that this computer uses for such files"));
  auto* column = new QVBoxLayout(this);
  column->addStretch();
  column->addWidget(sentence_);
  column->addWidget(open_, 0, Qt::AlignHCenter);
  column->addStretch();
  connect(open_, &QPushButton::clicked, this, [this] {
    QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(file_.string())));
  });
}

void PreviewMessage::say(const QString& sentence) {
  say(sentence, {});
}

void PreviewMessage::say(const QString& sentence, const std::filesystem::path& file) {
  sentence_->setText(sentence);
  file_ = file;
  open_->setVisible(!file.empty());
}

}  // namespace tallowmark
