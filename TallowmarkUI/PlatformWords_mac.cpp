// SPDX-License-Identifier: GPL-3.0-or-later
#include <QCoreApplication>

#include "TallowmarkUI/PlatformWords.h"

namespace tallowmark::PlatformWords {

QString showInFileManager() {
  return QCoreApplication::translate("PlatformWords", "Show in Finder");
}

QString showPartsInFileManager() {
  return QCoreApplication::translate("PlatformWords", "Show Parts in Finder");
}

}  // namespace tallowmark::PlatformWords
