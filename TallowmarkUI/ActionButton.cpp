// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkUI/ActionButton.h"

namespace tallowmark {

ActionButton::ActionButton(QAction* action, QWidget* parent)
    : QPushButton(parent), action_(action) {
  setObjectName(action->objectName() + "Button");
  setAutoDefault(true);
  follow();
  connect(action, &QAction::changed, this, &ActionButton::follow);
  connect(this, &QPushButton::clicked, action, &QAction::trigger);
}

void ActionButton::follow() {
  setText(action_->text());
  setToolTip(action_->toolTip());
  setAccessibleDescription(action_->toolTip());
  setEnabled(action_->isEnabled());
}

}  // namespace tallowmark
