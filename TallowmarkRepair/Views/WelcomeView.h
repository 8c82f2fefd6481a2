// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QWidget>

#include "TallowmarkRepair/Views/FileDrop.h"
#include "TallowmarkUI/Commands.h"

namespace tallowmark {

/// What the window shows as long as there are no files: what to drop here, and what can be rescued.
class WelcomeView final : public QWidget {
  Q_OBJECT

 public:
  explicit WelcomeView(Commands& commands, QWidget* parent = nullptr);

  FileDrop& drop() { return *drop_; }

 private:
  FileDrop* drop_;
};

}  // namespace tallowmark
