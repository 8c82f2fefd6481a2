// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QObject>

#include "TallowmarkRepair/Model/RepairModel.h"
#include "TallowmarkRepair/Views/ClipPicker.h"
#include "TallowmarkRepair/Views/Desktop.h"
#include "TallowmarkUI/Commands.h"

namespace tallowmark {

/// Lets the commands do what they say, to the model and to the selected items, and keeps them
/// enabled as long as they can. What it is given outlives it.
class CommandRouter final : public QObject {
  Q_OBJECT

 public:
  using SelectedIDs = std::function<std::vector<QUuid>()>;

  CommandRouter(RepairModel& model, Commands& commands, ClipPicker& picker, Desktop& desktop,
                SelectedIDs selectedIDs);

  /// Enables what can be done now.
  void refresh();

 signals:
  /// The user's choice cannot serve; the sentence says why.
  void referenceRefused(const QString& sentence);

 private:
  void connectAdding();
  void connectItems();
  void connectSaving();
  void useAsReference(const std::filesystem::path& file);
  const Clip* clip(const QUuid& id) const;
  const Join* join(const QUuid& id) const;
  bool isSavable(const QUuid& id) const;
  bool canRetry(const QUuid& id) const;
  std::vector<std::filesystem::path> selectedFiles() const;

  RepairModel& model_;
  Commands& commands_;
  ClipPicker& picker_;
  Desktop& desktop_;
  SelectedIDs selectedIDs_;
};

}  // namespace tallowmark
