// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
  // Where there is no display, and without windows that flash where there is one.
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
  }
  const QApplication application(argc, argv);
  // The platform is loaded by now; players are not, and will not be found.
  if (qEnvironmentVariableIsSet("TALLOWMARK_TESTS_WITHOUT_PLUGINS")) {
    QCoreApplication::setLibraryPaths({});
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
