// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QAbstractListModel>
#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/Join.h"

namespace tallowmark {

/// What the rows of a sidebar show of an item: its name (Qt::DisplayRole), where it is
/// (Qt::ToolTipRole), its id (itemIdRole). Anything else a view takes from the item itself.
inline constexpr int itemIdRole = Qt::UserRole;
QVariant rowData(const Clip& clip, int role);
QVariant rowData(const Join& join, int role);

/// Items in the order they came; the home of the records, and a list model of them. Belongs to the
/// main thread.
template <class Item>
class ItemList final : public QAbstractListModel {
 public:
  const std::vector<Item>& items() const { return items_; }

  /// Null when there is none; valid until the list changes.
  const Item* find(const QUuid& id) const {
    const auto found = place(id);
    return found == items_.end() ? nullptr : &*found;
  }

  void append(std::vector<Item> more) {
    if (more.empty()) {
      return;
    }
    const int first = rowCount();
    beginInsertRows({}, first, first + static_cast<int>(more.size()) - 1);
    std::move(more.begin(), more.end(), std::back_inserter(items_));
    endInsertRows();
  }

  /// Puts the item in the place of the one with its id; nothing happens when that is gone or equal.
  void replace(Item item) {
    const auto found = place(item.id);
    if (found == items_.end() || *found == item) {
      return;
    }
    const int row = rowOf(found);
    items_[static_cast<std::size_t>(row)] = std::move(item);
    emit dataChanged(index(row), index(row));
  }

  void setState(const QUuid& id, typename Item::State state) {
    if (const Item* item = find(id)) {
      Item changed = *item;
      changed.state = std::move(state);
      replace(std::move(changed));
    }
  }

  /// Whether it was there.
  bool remove(const QUuid& id) {
    const auto found = place(id);
    if (found == items_.end()) {
      return false;
    }
    const int row = rowOf(found);
    beginRemoveRows({}, row, row);
    items_.erase(found);
    endRemoveRows();
    return true;
  }

  void clear() {
    beginResetModel();
    items_.clear();
    endResetModel();
  }

  int rowCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : static_cast<int>(items_.size());
  }

  QVariant data(const QModelIndex& index, int role) const override {
    if (!index.isValid() || index.row() >= rowCount()) {
      return {};
    }
    return rowData(items_[static_cast<std::size_t>(index.row())], role);
  }

 private:
  typename std::vector<Item>::const_iterator place(const QUuid& id) const {
    return std::find_if(items_.begin(), items_.end(),
                        [&](const Item& item) { return item.id == id; });
  }
  int rowOf(typename std::vector<Item>::const_iterator item) const {
    return static_cast<int>(item - items_.begin());
  }

  std::vector<Item> items_;
};

}  // namespace tallowmark
