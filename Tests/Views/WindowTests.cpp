// SPDX-License-Identifier: GPL-3.0-or-later
#include "WindowTests.h"

#include <QApplication>
#include <QDropEvent>
#include <QMenu>
#include <QMimeData>
#include <QSignalSpy>

#include "TallowmarkRepair/Views/FilePaths.h"
#include "TallowmarkRepair/Views/RowsModel.h"

namespace tallowmark::testing {

void WindowTests::SetUp() {
  ModelTests::SetUp();
  if (!IsSkipped()) openWindow();
}

void WindowTests::openWindow(BatchWatch watch) {
  window = std::make_unique<MainWindow>(*model, updater, panels, desktop, watch);
  window->show();
  window->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
}

bool WindowTests::shows(const char* name) const {
  return find(name).isVisible();
}

QModelIndex WindowTests::row(const QString& name) const {
  const auto found = list().model()->match(list().model()->index(0, 0), Qt::DisplayRole, name, 1,
                                           Qt::MatchExactly);
  if (found.isEmpty()) throw std::runtime_error("no row " + name.toStdString());
  return found.front();
}

QString WindowTests::statusOf(const QString& name) const {
  return row(name).data(RowsModel::statusRole).toString();
}

void WindowTests::click(const QString& name, Qt::KeyboardModifiers keys) {
  QTest::mouseClick(list().viewport(), Qt::LeftButton, keys, list().visualRect(row(name)).center());
}

QStringList WindowTests::menuOf(const QString& name, const QString& chosen) {
  const QPoint place = list().visualRect(row(name)).center();
  QContextMenuEvent event(QContextMenuEvent::Mouse, place, list().viewport()->mapToGlobal(place));
  QApplication::sendEvent(list().viewport(), &event);
  auto& menu = find<QMenu>("itemMenu");
  QStringList texts;
  QAction* action = nullptr;
  for (QAction* entry : menu.actions()) {
    if (!entry->isSeparator()) texts << entry->text();
    if (entry->text() == chosen) action = entry;
  }
  if (action != nullptr) {
    QTest::mouseClick(&menu, Qt::LeftButton, {}, menu.actionGeometry(action).center());
  }
  menu.close();
  EXPECT_TRUE(
      until([this] { return window->findChild<QMenu*>(QLatin1String("itemMenu")) == nullptr; }));
  return texts;
}

void WindowTests::drop(QWidget& pane, const std::vector<std::filesystem::path>& files) {
  QMimeData data;
  QList<QUrl> urls;
  for (const auto& file : files) urls << FilePaths::url(file);
  data.setUrls(urls);
  QDragEnterEvent enter({20, 20}, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
  QApplication::sendEvent(&pane, &enter);
  ASSERT_TRUE(enter.isAccepted());
  EXPECT_TRUE(pane.findChild<QWidget*>("dropFrame")->isVisible());
  QDropEvent event({20, 20}, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, {});
  QApplication::sendEvent(&pane, &event);
  EXPECT_EQ(event.dropAction(), Qt::CopyAction);
  EXPECT_FALSE(pane.findChild<QWidget*>("dropFrame")->isVisible());
}

bool WindowTests::settleAfter(const std::function<void()>& adding) {
  const QSignalSpy added(model.get(), &RepairModel::filesAdded);
  adding();
  return until([&] { return !added.isEmpty(); }) && settle() &&
         until([this] { return textOf("stepStatus") == model->stepStatus(); });
}

QMessageBox* WindowTests::box(const char* name) {
  QMessageBox* found = nullptr;
  EXPECT_TRUE(until([&] {
    found = window->findChild<QMessageBox*>(QLatin1String(name));
    return found != nullptr && found->isVisible();
  }));
  return found;
}

}  // namespace tallowmark::testing
