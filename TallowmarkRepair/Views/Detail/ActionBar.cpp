// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/Detail/ActionBar.h"

#include <QHBoxLayout>

namespace tallowmark {

ActionButton::ActionButton(QAction& action, QWidget* parent)
    : QPushButton(parent), action_(action) {
  setObjectName(action.objectName() + QStringLiteral("Button"));
  connect(&action, &QAction::changed, this, &ActionButton::follow);
  connect(this, &QPushButton::clicked, &action, &QAction::trigger);
  follow();
}

void ActionButton::follow() {
  setText(action_.text());
  setToolTip(action_.toolTip());
  setEnabled(action_.isEnabled());
}

ActionBar::ActionBar(Commands& commands, QWidget* parent) : QWidget(parent), commands_(commands) {
  auto* row = new QHBoxLayout(this);
  row->setContentsMargins(28, 12, 28, 16);
  row->setSpacing(10);
  row->addStretch();
  setVisible(false);
}

void ActionBar::setActions(const PaneActions& actions) {
  if (actions == actions_) {
    return;
  }
  actions_ = actions;
  qDeleteAll(findChildren<ActionButton*>());
  for (const PaneActions::Command command : actions.others) addButton(command, false);
  if (actions.main != nullptr) addButton(actions.main, true);
  setVisible(actions.main != nullptr || !actions.others.empty());
}

void ActionBar::addButton(PaneActions::Command command, bool isMain) {
  auto* button = new ActionButton(*(commands_.*command)(), this);
  button->setDefault(isMain);
  button->setAutoDefault(true);
  layout()->addWidget(button);
}

}  // namespace tallowmark
