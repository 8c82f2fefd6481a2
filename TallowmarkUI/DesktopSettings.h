// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QDBusVariant>
#include <QObject>

class QDBusPendingCallWatcher;

namespace tallowmark {

/// What the user set for the whole desktop, as desktops of every kind tell it: the settings portal,
/// org.freedesktop.portal.Settings. Answers come while the program runs; where no portal is, none.
class DesktopSettings final : public QObject {
  Q_OBJECT

 public:
  explicit DesktopSettings(QObject* parent = nullptr);

 signals:
  void prefersDark(bool dark);
  void prefersStillness(bool still);

 private slots:
  void changed(const QString& group, const QString& key, const QDBusVariant& value);

 private:
  void ask(const QString& group, const QString& key);
};

}  // namespace tallowmark
