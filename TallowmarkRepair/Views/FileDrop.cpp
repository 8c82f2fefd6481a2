// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/FileDrop.h"

#include <QDropEvent>
#include <QMimeData>
#include <QPainter>

#include "TallowmarkRepair/Views/FilePaths.h"
#include "TallowmarkUI/BrandColors.h"

namespace tallowmark {

namespace {

/// Lies above the pane and lets everything through.
class Frame final : public QWidget {
 public:
  explicit Frame(QWidget& pane) : QWidget(&pane) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setObjectName("dropFrame");
    hide();
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = BrandColors::of(palette()).accent;
    QColor tint = accent;
    tint.setAlphaF(0.08F);
    painter.setBrush(tint);
    painter.setPen(QPen(accent, 2));
    painter.drawRoundedRect(QRectF(rect()).adjusted(6, 6, -6, -6), 10, 10);
  }
};

bool hasFiles(const QDropEvent& event) {
  const QList<QUrl> urls = event.mimeData()->urls();
  return std::any_of(urls.begin(), urls.end(), [](const QUrl& url) { return url.isLocalFile(); });
}

}  // namespace

FileDrop::FileDrop(QWidget& pane) : QObject(&pane), pane_(pane), frame_(new Frame(pane)) {
  pane.setAcceptDrops(true);
  pane.installEventFilter(this);
}

bool FileDrop::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
    case QEvent::DragEnter:
    case QEvent::DragMove:
    case QEvent::Drop:
      return take(*static_cast<QDropEvent*>(event));
    case QEvent::DragLeave:
      setOver(false);
      return false;
    default:
      return QObject::eventFilter(watched, event);
  }
}

bool FileDrop::take(QDropEvent& event) {
  if (!hasFiles(event)) {
    return false;
  }
  // Never a move: a file manager would delete the original afterwards.
  event.setDropAction(Qt::CopyAction);
  event.accept();
  const bool isDrop = event.type() == QEvent::Drop;
  setOver(!isDrop);
  if (isDrop) {
    emit dropped(FilePaths::fromURLs(event.mimeData()->urls()));
  }
  return true;
}

void FileDrop::setOver(bool over) {
  over_ = over;
  frame_->setGeometry(pane_.rect());
  frame_->setVisible(over);
  frame_->raise();
}

}  // namespace tallowmark
