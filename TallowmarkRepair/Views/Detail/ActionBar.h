// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAction>
#include <QPushButton>
#include <QWidget>

#include "TallowmarkRepair/Views/Detail/PaneActions.h"

namespace tallowmark {

/// A button that says, may and does what its action says, may and does.
class ActionButton final : public QPushButton {
  Q_OBJECT

 public:
  ActionButton(QAction& action, QWidget* parent);

 private:
  void follow();

  QAction& action_;
};

/// The buttons of a pane, at the end of the line; the main one last and first to be seen.
class ActionBar final : public QWidget {
  Q_OBJECT

 public:
  ActionBar(Commands& commands, QWidget* parent);
  /// Without actions the bar is hidden.
  void setActions(const PaneActions& actions);

 private:
  void addButton(PaneActions::Command command, bool isMain);

  Commands& commands_;
  PaneActions actions_;
};

}  // namespace tallowmark
