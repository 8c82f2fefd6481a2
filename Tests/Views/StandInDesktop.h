// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QDBusVariant>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

namespace tallowmark::testing {

/// The services of a desktop, as far as the window speaks to them.
// The slots have the names that the bus calls.
// NOLINTBEGIN(readability-identifier-naming)

class StandInPortal final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")

 public:
  uint scheme = 1;

 public slots:
  QDBusVariant Read(const QString& group, const QString& key) {
    const bool isScheme = group == "org.freedesktop.appearance" && key == "color-scheme";
    const QVariant value = isScheme ? QVariant(scheme) : QVariant(false);
    return QDBusVariant(QVariant::fromValue(QDBusVariant(value)));
  }
};

class StandInNotifications final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

 public:
  QStringList shown;

 public slots:
  uint Notify(const QString& /*program*/, uint /*replaces*/, const QString& /*icon*/,
              const QString& title, const QString& text, const QStringList& /*actions*/,
              const QVariantMap& /*hints*/, int /*milliseconds*/) {
    shown << title + ": " + text;
    return 1;
  }
};

class StandInFileManager final : public QObject {
  Q_OBJECT
  Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")

 public:
  QStringList shown;

 public slots:
  void ShowItems(const QStringList& urls, const QString& /*startup*/) { shown = urls; }
};

// NOLINTEND(readability-identifier-naming)

}  // namespace tallowmark::testing
