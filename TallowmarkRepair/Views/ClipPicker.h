// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "TallowmarkRepair/Model/RepairModel.h"
#include "TallowmarkRepair/Views/FilePanels.h"

namespace tallowmark {

/// The panels of this application, each with its sentence, its button and what can be chosen in it.
/// `panels` and `window`, which they are shown above, outlive it.
class ClipPicker {
 public:
  using ChosenFile = std::function<void(const std::filesystem::path&)>;

  ClipPicker(FilePanels& panels, QWidget& window) : panels_(panels), window_(window) {}

  /// Files, and folders where the system's panel gives both at once.
  void addClips(RepairModel& model);
  /// For the systems whose panels give either files or folders.
  void addFolder(RepairModel& model);
  void chooseReference(ChosenFile chosen);
  void joinClips(RepairModel& model);
  void chooseSaveFolder(ChosenFile chosen);

 private:
  FilePanels& panels_;
  QWidget& window_;
};

}  // namespace tallowmark
