// SPDX-License-Identifier: GPL-3.0-or-later
#include <QCoreApplication>

#include "TallowmarkUI/PlatformWords.h"

namespace tallowmark::PlatformWords {

QString showInFileManager() {
  return QCoreApplication::translate("PlatformWords", "Show in Files");
}

QString showPartsInFileManager() {
  return QCoreApplication::translate("PlatformWords", "Show Parts in Files");
}

}  // namespace tallowmark::PlatformWords
