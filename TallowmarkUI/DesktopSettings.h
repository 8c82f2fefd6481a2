// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>
#include <QVariant>

namespace tallowmark {

/// What the user set for the whole desktop, as desktops of every kind tell it: the settings portal,
/// org.freedesktop.portal.Settings. It is asked at first and whenever the user comes back to the
/// program; where no portal is, there is no answer.
class DesktopSettings final : public QObject {
  Q_OBJECT

 public:
  explicit DesktopSettings(QObject* parent = nullptr);

  /// Returns at once; the answers come as signals.
  void ask();

 signals:
  void prefersDark(bool dark);
  void prefersStillness(bool still);

 private:
  void ask(const QString& group, const QString& key);
  void tell(const QString& group, const QVariant& setting);
};

}  // namespace tallowmark
