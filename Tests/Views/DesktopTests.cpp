// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTest>
#include <csignal>

#include "StandInDesktop.h"
#include "TallowmarkRepair/Views/SystemDesktop.h"
#include "TallowmarkUI/DesktopSettings.h"
#include "Tests/Support/Process.h"

namespace tallowmark::testing {

namespace {

TEST(DesktopTests, speakWithTheServicesOfTheDesktop) {
  if (run({"dbus-daemon", "--version"}).exitCode != 0) {
    GTEST_SKIP() << "dbus-daemon is not installed";
  }
  const TemporaryFolder folder;
  const std::string address = "unix:path=" + (folder / "bus").string();
  const Process bus(
      {"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + address});
  ASSERT_TRUE(QTest::qWaitFor([&] { return std::filesystem::exists(folder / "bus"); }, 10'000));
  qputenv("DBUS_SESSION_BUS_ADDRESS", address.c_str());

  StandInPortal portal;
  StandInNotifications notifications;
  StandInFileManager files;
  auto desktopSide = QDBusConnection::connectToBus(QString::fromStdString(address), "desktop");
  const auto offer = [&](const char* service, const char* path, QObject& object) {
    return desktopSide.registerObject(path, &object, QDBusConnection::ExportAllSlots) &&
           desktopSide.registerService(service);
  };
  ASSERT_TRUE(offer("org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop", portal));
  ASSERT_TRUE(
      offer("org.freedesktop.Notifications", "/org/freedesktop/Notifications", notifications));
  ASSERT_TRUE(offer("org.freedesktop.FileManager1", "/org/freedesktop/FileManager1", files));

  DesktopSettings settings;
  QSignalSpy dark(&settings, &DesktopSettings::prefersDark);
  QSignalSpy still(&settings, &DesktopSettings::prefersStillness);
  ASSERT_TRUE(QTest::qWaitFor([&] { return dark.size() == 1 && still.size() == 1; }, 10'000));
  EXPECT_TRUE(dark.takeFirst().front().toBool());
  EXPECT_TRUE(still.takeFirst().front().toBool());
  portal.scheme = 2;
  emit qGuiApp->applicationStateChanged(Qt::ApplicationActive);
  ASSERT_TRUE(QTest::qWaitFor([&] { return dark.size() == 1; }, 10'000));
  EXPECT_FALSE(dark.front().front().toBool());

  SystemDesktop desktop;
  desktop.notify("Title", "1 < 2");
  ASSERT_TRUE(QTest::qWaitFor([&] { return !notifications.shown.isEmpty(); }, 10'000));
  EXPECT_EQ(notifications.shown, QStringList{"Title: 1 &lt; 2"});
  desktop.reveal({"/a b/c%d.MP4", "/f\xfc.JPG"});
  ASSERT_TRUE(QTest::qWaitFor([&] { return !files.shown.isEmpty(); }, 10'000));
  EXPECT_EQ(files.shown, (QStringList{"file:///a%20b/c%25d.MP4", "file:///f%FC.JPG"}));
  bus.signal(SIGTERM);
}

}  // namespace
}  // namespace tallowmark::testing
