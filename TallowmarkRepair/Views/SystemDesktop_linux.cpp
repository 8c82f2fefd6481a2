// SPDX-License-Identifier: GPL-3.0-or-later
// Over D-Bus, as file managers and notification servers of every desktop listen to: the interfaces
// org.freedesktop.FileManager1 and org.freedesktop.Notifications.
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QGuiApplication>

#include "TallowmarkRepair/Views/FilePaths.h"
#include "TallowmarkRepair/Views/SystemDesktop.h"

namespace tallowmark {

void SystemDesktop::reveal(const std::vector<std::filesystem::path>& files) {
  if (files.empty()) {
    return;
  }
  QStringList urls;
  for (const auto& file : files) urls << FilePaths::url(file).toString(QUrl::FullyEncoded);
  auto message = QDBusMessage::createMethodCall("org.freedesktop.FileManager1",
                                                "/org/freedesktop/FileManager1",
                                                "org.freedesktop.FileManager1", "ShowItems");
  message << urls << QString();
  const auto call = QDBusConnection::sessionBus().asyncCall(message);
  auto* watcher = new QDBusPendingCallWatcher(call, qApp);
  // No file manager that selects files: the folder at least.
  QObject::connect(watcher, &QDBusPendingCallWatcher::finished, qApp,
                   [folder = files.front().parent_path()](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     if (finished->isError()) {
                       QDesktopServices::openUrl(FilePaths::url(folder));
                     }
                   });
}

void SystemDesktop::notify(const QString& title, const QString& text) {
  auto message = QDBusMessage::createMethodCall("org.freedesktop.Notifications",
                                                "/org/freedesktop/Notifications",
                                                "org.freedesktop.Notifications", "Notify");
  constexpr quint32 replacesNothing = 0;
  constexpr qint32 asLongAsTheDesktopDoes = -1;
  message << QGuiApplication::applicationDisplayName() << replacesNothing
          << QGuiApplication::desktopFileName() << title << text.toHtmlEscaped() << QStringList()
          << QVariantMap{{"desktop-entry", QGuiApplication::desktopFileName()}}
          << asLongAsTheDesktopDoes;
  QDBusConnection::sessionBus().send(message);
}

}  // namespace tallowmark
