// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QUrl>

#include "TallowmarkRepair/Views/FilePanels.h"

namespace tallowmark {

/// The system's own panels. They start where the user was last, while the program runs.
class SystemPanels final : public FilePanels {
 public:
  void ask(const PanelRequest& request, QWidget* window, Chosen chosen) override;

 private:
  QUrl lastSource_;
  QUrl lastDestination_;
};

}  // namespace tallowmark
