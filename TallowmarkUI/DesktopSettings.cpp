// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/DesktopSettings.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QGuiApplication>

namespace tallowmark {

namespace {

constexpr auto service = "org.freedesktop.portal.Desktop";
constexpr auto path = "/org/freedesktop/portal/desktop";
constexpr auto interfaceName = "org.freedesktop.portal.Settings";
constexpr auto appearance = "org.freedesktop.appearance";
constexpr auto gnome = "org.gnome.desktop.interface";

// Portals differ in how often they wrap a value.
QVariant unwrapped(QVariant value) {
  while (value.canConvert<QDBusVariant>()) value = value.value<QDBusVariant>().variant();
  return value;
}

}  // namespace

DesktopSettings::DesktopSettings(QObject* parent) : QObject(parent) {
  connect(qGuiApp, &QGuiApplication::applicationStateChanged, this,
          [this](Qt::ApplicationState state) {
            if (state == Qt::ApplicationActive) ask();
          });
  ask();
}

void DesktopSettings::ask() {
  ask(appearance, "color-scheme");
  ask(gnome, "enable-animations");
}

void DesktopSettings::ask(const QString& group, const QString& key) {
  auto message = QDBusMessage::createMethodCall(service, path, interfaceName, "Read");
  message << group << key;
  auto* watcher =
      new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this,
          [this, group](QDBusPendingCallWatcher* finished) {
            finished->deleteLater();
            const QDBusPendingReply<QDBusVariant> reply = *finished;
            if (!reply.isError()) {
              tell(group, unwrapped(reply.value().variant()));
            }
          });
}

void DesktopSettings::tell(const QString& group, const QVariant& setting) {
  if (group == appearance) {
    // 0 no preference, 1 dark, 2 light.
    emit prefersDark(setting.toUInt() == 1);
  } else {
    emit prefersStillness(!setting.toBool());
  }
}

}  // namespace tallowmark
