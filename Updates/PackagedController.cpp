// SPDX-License-Identifier: GPL-3.0-or-later
#include <QCoreApplication>

#include "Updates/UpdaterController.h"

namespace tallowmark {

std::unique_ptr<UpdaterController> makeUpdaterController() {
  return nullptr;
}

QString whereUpdatesComeFrom() {
  return QCoreApplication::translate("AppUpdater", "Updates come from the package manager.");
}

}  // namespace tallowmark
