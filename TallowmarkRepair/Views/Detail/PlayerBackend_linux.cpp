// SPDX-License-Identifier: GPL-3.0-or-later
#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QPluginLoader>

#include "TallowmarkRepair/Views/Detail/PlayerBackend.h"

namespace tallowmark {

namespace {

constexpr const char* variable = "QT_MEDIA_BACKEND";

// Whether Qt will find and load the plugin of that name.
bool canLoad(const QString& name) {
  for (const QString& path : QCoreApplication::libraryPaths()) {
    const QDir folder(path + QStringLiteral("/multimedia"));
    for (const QString& file : folder.entryList(QDir::Files)) {
      QPluginLoader plugin(folder.filePath(file));
      const QJsonArray keys =
          plugin.metaData().value("MetaData").toObject().value("Keys").toArray();
      if (keys.contains(name) && plugin.load()) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace

// Qt 6.4 takes GStreamer unasked, and ends the program where GStreamer's own plugins are not
// installed. FFmpeg needs none, and made the clips that are played.
void choosePlayerBackend() {
  if (!qEnvironmentVariableIsSet(variable)) {
    qputenv(variable, "ffmpeg");
  }
}

bool loadPlayerBackend() {
  static const bool isThere = canLoad(qEnvironmentVariable(variable));
  return isThere;
}

}  // namespace tallowmark
