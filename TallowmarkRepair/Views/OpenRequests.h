// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

#include "TallowmarkRepair/Model/RepairModel.h"

namespace tallowmark {

/// Adds what the system asks the running application to open: files that were dropped on the Dock
/// icon or chosen with "Open With" on the Mac. `model` outlives it.
class OpenRequests final : public QObject {
  Q_OBJECT

 public:
  explicit OpenRequests(RepairModel& model) : model_(model) {}

  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  RepairModel& model_;
};

}  // namespace tallowmark
