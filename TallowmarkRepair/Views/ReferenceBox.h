// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QFrame>
#include <span>

#include "TallowmarkRepair/Model/RepairModel.h"
#include "TallowmarkUI/Commands.h"

class QLabel;
class QVBoxLayout;

namespace tallowmark {

class ElidingLabel;

/// What the damaged files are repaired with, or that something is wanted for that.
class ReferenceBox final : public QFrame {
  Q_OBJECT

 public:
  explicit ReferenceBox(Commands& commands, QWidget* parent = nullptr);

  void show(std::span<const RepairModel::ReferenceInUse> references, bool chosenByUser);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void changeEvent(QEvent* event) override;

 private:
  QLabel* addProse(const char* name, QVBoxLayout& column);
  void colorTexts();

  QLabel* heading_;
  ElidingLabel* name_;
  QLabel* facts_;
  QLabel* request_;
  QLabel* explanation_;
};

}  // namespace tallowmark
