// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAction>
#include <QPushButton>

namespace tallowmark {

/// A button for one of the commands: says what its action says, can be pressed while the action can
/// be triggered, and triggers it. The action outlives it.
class ActionButton final : public QPushButton {
 public:
  explicit ActionButton(QAction* action, QWidget* parent = nullptr);

 private:
  void follow();

  QAction* action_;
};

}  // namespace tallowmark
