// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/PictureView.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QImageReader>
#include <QLabel>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "TallowmarkRepair/Views/Detail/Beside.h"
#include "TallowmarkRepair/Views/Detail/Glyphs.h"
#include "TallowmarkRepair/Views/Detail/PictureCanvas.h"
#include "TallowmarkRepair/Views/Detail/PreviewMessage.h"

namespace tallowmark {

namespace {

using Glyphs::Glyph;

QImage read(const QString& file) {
  constexpr int most = 4096;
  QImageReader reader(file);
  reader.setAutoTransform(true);
  const QSize size = reader.size();
  if (size.width() > most || size.height() > most) {
    reader.setScaledSize(size.scaled(most, most, Qt::KeepAspectRatio));
  }
  return reader.read();
}

}  // namespace

PictureView::PictureView(QWidget* parent)
    : QWidget(parent),
      pages_(new QStackedWidget(this)),
      canvas_(new PictureCanvas(this)),
      message_(new PreviewMessage(this)),
      controls_(new QWidget(this)),
      scale_(new QLabel(controls_)) {
  canvas_->setObjectName("pictureCanvas");
  pages_->addWidget(canvas_);
  pages_->addWidget(message_);
  auto* row = new QHBoxLayout(controls_);
  row->setContentsMargins(0, 0, 0, 0);
  row->addStretch();
  row->addWidget(scale_);
  row->addSpacing(8);
  out_ = addButton("zoomOutButton", tr("Zoom out"), "-", &PictureCanvas::zoomOut);
  in_ = addButton("zoomInButton", tr("Zoom in"), "+", &PictureCanvas::zoomIn);
  fit_ = addButton("fitButton", tr("Fit into the pane"), "0", &PictureCanvas::fit);
  actual_ = addButton("actualSizeButton", tr("Actual size"), "1", &PictureCanvas::showActualSize);
  actual_->setText(tr("100 %"));
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(4);
  column->addWidget(pages_, 1);
  column->addWidget(controls_);
  connect(&reading_, &QFutureWatcher<QImage>::finished, this, &PictureView::showPicture);
  connect(canvas_, &PictureCanvas::scaleChanged, this, &PictureView::showScale);
  showIcons();
}

QToolButton* PictureView::addButton(const char* name, const QString& text, const QString& key,
                                    void (PictureCanvas::*slot)()) {
  auto* button = new QToolButton(controls_);
  button->setObjectName(name);
  button->setAutoRaise(true);
  button->setIconSize({18, 18});
  button->setFocusPolicy(Qt::TabFocus);
  button->setAccessibleName(text);
  button->setToolTip(QStringLiteral("%1 (%2)").arg(text, key));
  controls_->layout()->addWidget(button);
  connect(button, &QToolButton::clicked, canvas_, slot);
  return button;
}

void PictureView::load(const std::filesystem::path& picture) {
  if (picture == file_) {
    return;
  }
  unload();
  file_ = picture;
  reading_.setFuture(
      beside([file = QString::fromStdString(picture.string())] { return read(file); }));
}

void PictureView::unload() {
  reading_.cancel();
  reading_.setFuture({});
  file_.clear();
  canvas_->setPicture({});
  pages_->setCurrentWidget(canvas_);
  controls_->setEnabled(false);
}

void PictureView::showPicture() {
  if (file_.empty() || reading_.isCanceled()) {
    return;
  }
  const QImage picture = reading_.result();
  if (picture.isNull()) {
    message_->say(tr("The picture can't be shown here."), file_);
    pages_->setCurrentWidget(message_);
    return;
  }
  controls_->setEnabled(true);
  canvas_->setPicture(picture);
}

void PictureView::showScale() {
  scale_->setText(canvas_->picture().isNull()
                      ? QString()
                      : tr("%1 %").arg(std::lround(canvas_->scale() * 100)));
}

void PictureView::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) showIcons();
}

void PictureView::showIcons() {
  out_->setIcon(Glyphs::icon(Glyph::zoomOut, palette()));
  in_->setIcon(Glyphs::icon(Glyph::zoomIn, palette()));
  fit_->setIcon(Glyphs::icon(Glyph::fit, palette()));
}

}  // namespace tallowmark
