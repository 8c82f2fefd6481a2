// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/OpenRequests.h"

#include <QFileOpenEvent>

#include "TallowmarkRepair/Views/FilePaths.h"

namespace tallowmark {

bool OpenRequests::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() != QEvent::FileOpen) {
    return QObject::eventFilter(watched, event);
  }
  model_.add(FilePaths::fromURLs({static_cast<QFileOpenEvent*>(event)->url()}));
  return true;
}

}  // namespace tallowmark
