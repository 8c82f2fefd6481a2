// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAbstractListModel>
#include <set>

#include "TallowmarkRepair/Model/RepairModel.h"
#include "TallowmarkRepair/Views/ItemLooks.h"

namespace tallowmark {

/// The rows of the sidebar: the split recordings under their heading, where there are any, then the
/// files. Headings can be neither selected nor reached. `model` outlives it.
class RowsModel final : public QAbstractListModel {
  Q_OBJECT

 public:
  enum Role {
    idRole = itemIdRole,
    statusRole,
    /// Of ItemLooks, as numbers.
    symbolRole,
    toneRole,
    /// A number from 0 to 1, or nothing.
    fractionRole,
    isHeadingRole,
  };

  explicit RowsModel(RepairModel& model, QObject* parent = nullptr);

  /// The rows of these files say that they serve as a reference.
  void setReferences(std::set<std::filesystem::path> references);

  /// The row of a clip or join; an invalid index for neither.
  QModelIndex indexOf(const QUuid& id) const;

  int rowCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;

 private:
  void followJoins();
  void followClips();
  int firstJoin() const { return 1; }
  int firstClip() const { return joins_ > 0 ? joins_ + 2 : 0; }
  void announce(int first, int last);
  void announceClips() { announce(firstClip(), rowCount() - 1); }
  const Clip* clipAt(int row) const;
  const Join* joinAt(int row) const;
  QVariant clipData(const Clip& clip, int role) const;
  static QVariant joinData(const Join& join, int role);

  RepairModel& model_;
  std::set<std::filesystem::path> references_;
  // What views have been told of; the lists change a little earlier.
  int joins_ = 0;
  int clips_ = 0;
};

}  // namespace tallowmark
