// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/StartupValues.h"

#include <QDir>
#include <QFile>
#include <QUrl>

namespace tallowmark {

namespace {

QString valueOf(const QString& key, const QStringList& arguments, const QSettings& settings) {
  const auto place = arguments.lastIndexOf("-" + key);
  return place >= 0 && place + 1 < arguments.size() ? arguments[place + 1]
                                                    : settings.value(key).toString();
}

std::filesystem::path pathOf(const QString& path) {
  return QFile::encodeName(path).toStdString();
}

// The first is the program; a key is followed by its value.
QStringList withoutKeys(const QStringList& arguments) {
  QStringList rest;
  for (qsizetype i = 1; i < arguments.size(); ++i) {
    if (arguments[i].startsWith("-TM")) {
      ++i;
    } else if (!arguments[i].startsWith('-')) {
      rest << arguments[i];
    }
  }
  return rest;
}

}  // namespace

StartupValues startupValues(const QStringList& arguments, const QSettings& settings) {
  StartupValues values;
  values.select = QFile::encodeName(valueOf("TMSelect", arguments, settings)).toStdString();
  values.appearance = valueOf("TMAppearance", arguments, settings);
  const QStringList paths =
      valueOf("TMOpenFiles", arguments, settings).split(':', Qt::SkipEmptyParts);
  for (const QString& path : paths) values.openFiles.push_back(pathOf(path));
  for (const QString& given : withoutKeys(arguments)) {
    const QUrl url = QUrl::fromUserInput(given, QDir::currentPath(), QUrl::AssumeLocalFile);
    if (url.isLocalFile()) values.openFiles.push_back(pathOf(url.toLocalFile()));
  }
  return values;
}

}  // namespace tallowmark
