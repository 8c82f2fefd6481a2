// SPDX-License-Identifier: GPL-3.0-or-later
#include <QApplication>
#include <QProcess>
#include <QSystemTrayIcon>
#include <QTimer>

#include "TallowmarkRepair/Views/FilePaths.h"
#include "TallowmarkRepair/Views/SystemDesktop.h"

namespace tallowmark {

void SystemDesktop::reveal(const std::vector<std::filesystem::path>& files) {
  QStringList arguments{"-R"};
  for (const auto& file : files) arguments << FilePaths::shown(file);
  QProcess::startDetached("/usr/bin/open", arguments);
}

// Notifications are sent by what stands in the menu bar; it stands there as long as they show.
void SystemDesktop::notify(const QString& title, const QString& text) {
  auto* item = new QSystemTrayIcon(QApplication::windowIcon(), qApp);
  item->show();
  item->showMessage(title, text);
  constexpr int milliseconds = 10'000;
  QTimer::singleShot(milliseconds, item, &QObject::deleteLater);
}

}  // namespace tallowmark
