// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <vector>

#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/Join.h"
#include "TallowmarkRepair/Views/Detail/ItemBackground.h"
#include "TallowmarkUI/Commands.h"

namespace tallowmark {

/// What a pane offers to do.
struct PaneActions {
  using Command = QAction* (Commands::*)() const;

  /// The obvious one; null where nothing needs to be done.
  Command main = nullptr;
  /// In the order of their buttons.
  std::vector<Command> others;

  static PaneActions of(const Clip& clip, const ClipBackground& background);
  static PaneActions of(const Join& join);

  friend bool operator==(const PaneActions&, const PaneActions&) = default;
};

}  // namespace tallowmark
