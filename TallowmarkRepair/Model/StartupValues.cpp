// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/StartupValues.h"

#include <QFile>

namespace tallowmark {

namespace {

QString valueOf(const QString& key, const QStringList& arguments, const QSettings& settings) {
  const auto place = arguments.lastIndexOf("-" + key);
  return place >= 0 && place + 1 < arguments.size() ? arguments[place + 1]
                                                    : settings.value(key).toString();
}

}  // namespace

StartupValues startupValues(const QStringList& arguments, const QSettings& settings) {
  StartupValues values;
  values.select = QFile::encodeName(valueOf("TMSelect", arguments, settings)).toStdString();
  const QStringList paths =
      valueOf("TMOpenFiles", arguments, settings).split(':', Qt::SkipEmptyParts);
  for (const QString& path : paths) {
    values.openFiles.emplace_back(QFile::encodeName(path).toStdString());
  }
  return values;
}

}  // namespace tallowmark
