// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/DesktopSettings.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace tallowmark {

namespace {

constexpr auto service = "org.freedesktop.portal.Desktop";
constexpr auto path = "/org/freedesktop/portal/desktop";
constexpr auto interfaceName = "org.freedesktop.portal.Settings";
constexpr auto appearance = "org.freedesktop.appearance";
constexpr auto gnome = "org.gnome.desktop.interface";

// The portal's older call wraps a value once more than its signal does.
QVariant unwrapped(QVariant value) {
  while (value.canConvert<QDBusVariant>()) value = value.value<QDBusVariant>().variant();
  return value;
}

}  // namespace

DesktopSettings::DesktopSettings(QObject* parent) : QObject(parent) {
  QDBusConnection::sessionBus().connect(service, path, interfaceName, "SettingChanged", this,
                                        SLOT(changed(QString, QString, QDBusVariant)));
  ask(appearance, "color-scheme");
  ask(gnome, "enable-animations");
}

void DesktopSettings::ask(const QString& group, const QString& key) {
  auto message = QDBusMessage::createMethodCall(service, path, interfaceName, "Read");
  message << group << key;
  auto* watcher =
      new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this,
          [this, group, key](QDBusPendingCallWatcher* finished) {
            finished->deleteLater();
            const QDBusPendingReply<QDBusVariant> reply = *finished;
            if (!reply.isError()) {
              changed(group, key, reply.value());
            }
          });
}

void DesktopSettings::changed(const QString& group, const QString& key, const QDBusVariant& value) {
  const QVariant setting = unwrapped(value.variant());
  if (group == appearance && key == "color-scheme") {
    // 0 no preference, 1 dark, 2 light.
    emit prefersDark(setting.toUInt() == 1);
  } else if (group == gnome && key == "enable-animations") {
    emit prefersStillness(!setting.toBool());
  }
}

}  // namespace tallowmark
