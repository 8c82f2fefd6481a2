// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/RowsModel.h"

#include "TallowmarkRepair/Model/ItemTexts.h"

namespace tallowmark {

namespace {

template <class Item>
const Item* at(const std::vector<Item>& items, int place) {
  return place >= 0 && place < std::ssize(items) ? &items[static_cast<std::size_t>(place)]
                                                 : nullptr;
}

template <class Item>
int placeOf(const std::vector<Item>& items, const QUuid& id) {
  const auto found =
      std::find_if(items.begin(), items.end(), [&](const Item& item) { return item.id == id; });
  return found == items.end() ? -1 : static_cast<int>(found - items.begin());
}

QVariant looks(const ItemLooks& looks, int role) {
  switch (role) {
    case RowsModel::symbolRole:
      return static_cast<int>(looks.symbol);
    case RowsModel::toneRole:
      return static_cast<int>(looks.tone);
    case RowsModel::fractionRole:
      return looks.fraction ? QVariant(*looks.fraction) : QVariant();
    default:
      return {};
  }
}

}  // namespace

RowsModel::RowsModel(RepairModel& model, QObject* parent)
    : QAbstractListModel(parent),
      model_(model),
      joins_(static_cast<int>(model.joins().size())),
      clips_(static_cast<int>(model.clips().size())) {
  followClips();
  followJoins();
}

void RowsModel::followClips() {
  const QAbstractListModel* list = &model_.clipList();
  connect(list, &QAbstractItemModel::rowsAboutToBeInserted, this,
          [this](const QModelIndex&, int first, int last) {
            beginInsertRows({}, firstClip() + first, firstClip() + last);
          });
  connect(list, &QAbstractItemModel::rowsInserted, this,
          [this](const QModelIndex&, int first, int last) {
            clips_ += last - first + 1;
            endInsertRows();
          });
  connect(list, &QAbstractItemModel::rowsAboutToBeRemoved, this,
          [this](const QModelIndex&, int first, int last) {
            beginRemoveRows({}, firstClip() + first, firstClip() + last);
          });
  connect(list, &QAbstractItemModel::rowsRemoved, this,
          [this](const QModelIndex&, int first, int last) {
            clips_ -= last - first + 1;
            endRemoveRows();
          });
  connect(list, &QAbstractItemModel::modelAboutToBeReset, this, [this] { beginResetModel(); });
  connect(list, &QAbstractItemModel::modelReset, this, [this] {
    clips_ = static_cast<int>(model_.clips().size());
    endResetModel();
  });
  connect(list, &QAbstractItemModel::dataChanged, this,
          [this](const QModelIndex& first, const QModelIndex& last) {
            announce(firstClip() + first.row(), firstClip() + last.row());
          });
}

// The headings come with the first recording and go with the last. What rows of clips say depends
// on the recordings that they are parts of.
void RowsModel::followJoins() {
  const QAbstractListModel* list = &model_.joinList();
  connect(list, &QAbstractItemModel::rowsAboutToBeInserted, this,
          [this](const QModelIndex&, int first, int last) {
            if (joins_ == 0) {
              beginInsertRows({}, 0, last + 2);
            } else {
              beginInsertRows({}, firstJoin() + first, firstJoin() + last);
            }
          });
  connect(list, &QAbstractItemModel::rowsInserted, this,
          [this](const QModelIndex&, int first, int last) {
            joins_ += last - first + 1;
            endInsertRows();
            announceClips();
          });
  connect(list, &QAbstractItemModel::rowsAboutToBeRemoved, this,
          [this](const QModelIndex&, int first, int last) {
            if (joins_ == last - first + 1) {
              beginRemoveRows({}, 0, joins_ + 1);
            } else {
              beginRemoveRows({}, firstJoin() + first, firstJoin() + last);
            }
          });
  connect(list, &QAbstractItemModel::rowsRemoved, this,
          [this](const QModelIndex&, int first, int last) {
            joins_ -= last - first + 1;
            endRemoveRows();
            announceClips();
          });
  connect(list, &QAbstractItemModel::modelAboutToBeReset, this, [this] { beginResetModel(); });
  connect(list, &QAbstractItemModel::modelReset, this, [this] {
    joins_ = static_cast<int>(model_.joins().size());
    endResetModel();
  });
  connect(list, &QAbstractItemModel::dataChanged, this,
          [this](const QModelIndex& first, const QModelIndex& last) {
            announce(firstJoin() + first.row(), firstJoin() + last.row());
            announceClips();
          });
}

void RowsModel::announce(int first, int last) {
  if (first <= last) {
    emit dataChanged(index(first), index(last));
  }
}

void RowsModel::setReferences(std::set<std::filesystem::path> references) {
  if (references_ != references) {
    references_ = std::move(references);
    announceClips();
  }
}

QModelIndex RowsModel::indexOf(const QUuid& id) const {
  const int join = placeOf(model_.joins(), id);
  const int clip = placeOf(model_.clips(), id);
  return join >= 0   ? index(firstJoin() + join)
         : clip >= 0 ? index(firstClip() + clip)
                     : QModelIndex();
}

int RowsModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : firstClip() + clips_;
}

const Clip* RowsModel::clipAt(int row) const {
  return at(model_.clips(), row - firstClip());
}

const Join* RowsModel::joinAt(int row) const {
  return joins_ > 0 && row <= joins_ ? at(model_.joins(), row - firstJoin()) : nullptr;
}

Qt::ItemFlags RowsModel::flags(const QModelIndex& index) const {
  if (!index.isValid()) {
    return Qt::NoItemFlags;
  }
  const bool isItem = joinAt(index.row()) != nullptr || clipAt(index.row()) != nullptr;
  return isItem ? Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren
                : Qt::ItemFlags(Qt::ItemNeverHasChildren);
}

QVariant RowsModel::data(const QModelIndex& index, int role) const {
  if (!checkIndex(index, CheckIndexOption::IndexIsValid)) {
    return {};
  }
  if (const Join* join = joinAt(index.row())) {
    return joinData(*join, role);
  }
  if (const Clip* clip = clipAt(index.row())) {
    return clipData(*clip, role);
  }
  if (role == isHeadingRole) {
    return true;
  }
  return role == Qt::DisplayRole ? QVariant(index.row() == 0 ? tr("Split recordings") : tr("Files"))
                                 : QVariant();
}

QVariant RowsModel::clipData(const Clip& clip, int role) const {
  switch (role) {
    case statusRole:
      return ItemTexts::rowStatus(clip, {.isReference = references_.contains(clip.url),
                                         .part = model_.splitPart(clip.url)});
    case Qt::AccessibleTextRole:
      return tr("%1, %2").arg(rowData(clip, Qt::DisplayRole).toString(),
                              clipData(clip, statusRole).toString());
    case symbolRole:
    case toneRole:
    case fractionRole:
      return looks(ItemLooks::of(clip), role);
    default:
      return rowData(clip, role);
  }
}

QVariant RowsModel::joinData(const Join& join, int role) {
  switch (role) {
    case statusRole:
      return ItemTexts::rowStatus(join);
    case Qt::AccessibleTextRole:
      return tr("%1, %2").arg(rowData(join, Qt::DisplayRole).toString(),
                              ItemTexts::rowStatus(join));
    case symbolRole:
    case toneRole:
    case fractionRole:
      return looks(ItemLooks::of(join), role);
    default:
      return rowData(join, role);
  }
}

}  // namespace tallowmark
