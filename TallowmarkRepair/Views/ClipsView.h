// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QListView>
#include <QWidget>

#include "TallowmarkRepair/Model/RepairModel.h"
#include "TallowmarkRepair/Views/FileDrop.h"
#include "TallowmarkRepair/Views/RowsModel.h"
#include "TallowmarkUI/Commands.h"

namespace tallowmark {

class ReferenceBox;

/// The list of files and recordings, the reference box beneath, and the selected item's pane
/// beside. The list's current row is the model's selection; more rows can be selected along with it
/// for what is done with several at once. `model` and `commands` outlive it.
class ClipsView final : public QWidget {
  Q_OBJECT

 public:
  ClipsView(RepairModel& model, Commands& commands, QWidget* parent = nullptr);

  FileDrop& drop() { return *drop_; }
  /// Of the selected rows, from the top.
  std::vector<QUuid> selectedIDs() const;
  /// Looks at the model again, for what costs too much to follow with every change.
  void refresh();

 signals:
  void selectedIDsChanged();

 private:
  QWidget* makeSidebar();
  void makeList(QWidget* sidebar);
  void tellModel();
  void followModel();
  void selectBeside(int first, int last);
  void showMenu(const QPoint& place);

  RepairModel& model_;
  Commands& commands_;
  RowsModel rows_;
  QListView* list_ = nullptr;
  ReferenceBox* reference_ = nullptr;
  FileDrop* drop_;
};

}  // namespace tallowmark
