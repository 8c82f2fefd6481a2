// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QMainWindow>
#include <QTimer>

#include "TallowmarkRepair/Model/RepairModel.h"
#include "TallowmarkRepair/Views/BatchWatch.h"
#include "TallowmarkRepair/Views/ClipPicker.h"
#include "TallowmarkRepair/Views/CommandRouter.h"
#include "TallowmarkRepair/Views/Desktop.h"
#include "TallowmarkUI/Commands.h"
#include "TallowmarkUI/Header.h"
#include "Updates/AppUpdater.h"

class QMessageBox;
class QStackedWidget;

namespace tallowmark {

class ClipsView;
class WelcomeView;

/// The window: the header, and below it the welcome pane, or the list and the selected item's pane
/// as soon as there is an item. What it is given outlives it.
class MainWindow final : public QMainWindow {
  Q_OBJECT

 public:
  MainWindow(RepairModel& model, AppUpdater& updater, FilePanels& panels, Desktop& desktop,
             BatchWatch watch = BatchWatch());
  ~MainWindow() override;

  Commands& commands() { return commands_; }

 protected:
  void closeEvent(QCloseEvent* event) override;

 private:
  void makePages();
  void makeMenus();
  void connectUpdates(AppUpdater& updater);
  void takeDrops();
  void refreshSoon();
  void showPage();
  /// The window, or what it asks.
  bool isInFront() const;
  void refresh();
  void showReferenceAlert(const QString& sentence);
  void askBeforeQuitting();

  RepairModel& model_;
  Desktop& desktop_;
  Commands commands_;
  ClipPicker picker_;
  Header* header_;
  QStackedWidget* pages_;
  WelcomeView* welcome_;
  ClipsView* clips_;
  CommandRouter router_;
  BatchWatch watch_;
  QTimer refreshing_;
  bool mayQuit_ = false;
};

}  // namespace tallowmark
