// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/ClipsView.h"

#include <QContextMenuEvent>
#include <QMenu>
#include <QSplitter>
#include <QVBoxLayout>

#include "TallowmarkRepair/Views/ClipRow.h"
#include "TallowmarkRepair/Views/Detail/ActionBar.h"
#include "TallowmarkRepair/Views/Detail/DetailView.h"
#include "TallowmarkRepair/Views/ReferenceBox.h"

namespace tallowmark {

namespace {

/// Asks for its menu at the current row when the keyboard does, and never moves onto a heading.
class ItemListView final : public QListView {
 public:
  explicit ItemListView(QWidget* parent) : QListView(parent) {
    setViewportMargins(0, 4, 0, 4);
    setBackgroundRole(QPalette::Base);
    setAutoFillBackground(true);
  }

 protected:
  void contextMenuEvent(QContextMenuEvent* event) override {
    const bool byKeyboard = event->reason() == QContextMenuEvent::Keyboard;
    emit customContextMenuRequested(byKeyboard ? visualRect(currentIndex()).center()
                                               : event->pos());
  }

  QModelIndex moveCursor(CursorAction action, Qt::KeyboardModifiers keys) override {
    QModelIndex next = QListView::moveCursor(action, keys);
    while (next.isValid() && !next.flags().testFlag(Qt::ItemIsEnabled)) {
      next = next.siblingAtRow(next.row() + 1);
    }
    return next;
  }
};

// The one that the user chose, else those that are used for something, else the one that would be.
std::vector<RepairModel::ReferenceInUse> shownReferences(const RepairModel& model) {
  std::vector<RepairModel::ReferenceInUse> shown;
  if (!model.referenceChosenByUser()) {
    shown = model.referencesInUse();
  }
  if (const auto reference = model.reference(); reference && shown.empty()) {
    shown.emplace_back(*reference, model.referenceInfo());
  }
  return shown;
}

}  // namespace

ClipsView::ClipsView(RepairModel& model, Commands& commands, QWidget* parent)
    : QWidget(parent),
      model_(model),
      commands_(commands),
      rows_(model),
      drop_(new FileDrop(*this)) {
  setObjectName("clipsView");
  auto* splitter = new QSplitter(this);
  splitter->setChildrenCollapsible(false);
  splitter->setHandleWidth(1);
  splitter->addWidget(makeSidebar());
  auto* detail = new DetailView(model, commands);
  splitter->addWidget(detail);
  splitter->setStretchFactor(0, 0);
  splitter->setStretchFactor(1, 1);
  splitter->setSizes({320, 780});
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(splitter);
  setFocusProxy(list_);
  connect(&model_, &RepairModel::selectionChanged, this, &ClipsView::followModel);
  connect(&rows_, &QAbstractItemModel::rowsAboutToBeRemoved, this,
          [this](const QModelIndex&, int first, int last) { selectBeside(first, last); });
  followModel();
  refresh();
}

QWidget* ClipsView::makeSidebar() {
  auto* sidebar = new QWidget;
  sidebar->setObjectName("sidebar");
  sidebar->setMinimumWidth(260);
  sidebar->setMaximumWidth(480);
  auto* column = new QVBoxLayout(sidebar);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);
  makeList(sidebar);
  column->addWidget(list_, 1);
  auto* foot = new QVBoxLayout;
  foot->setContentsMargins(12, 10, 12, 12);
  foot->setSpacing(10);
  auto* buttons = new QHBoxLayout;
  buttons->setSpacing(8);
  buttons->addWidget(new ActionButton(*commands_.add(), sidebar));
  buttons->addWidget(new ActionButton(*commands_.saveAll(), sidebar));
  foot->addLayout(buttons);
  reference_ = new ReferenceBox(commands_, sidebar);
  foot->addWidget(reference_);
  column->addLayout(foot);
  return sidebar;
}

void ClipsView::makeList(QWidget* sidebar) {
  list_ = new ItemListView(sidebar);
  list_->setObjectName("itemList");
  list_->setAccessibleName(tr("Files and recordings"));
  list_->setModel(&rows_);
  list_->setItemDelegate(new ClipRow(list_));
  list_->setFrameShape(QFrame::NoFrame);
  list_->setSelectionMode(QAbstractItemView::ExtendedSelection);
  list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  list_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  list_->setResizeMode(QListView::Adjust);
  list_->setMouseTracking(true);
  list_->setAcceptDrops(false);
  connect(list_, &QWidget::customContextMenuRequested, this, &ClipsView::showMenu);
  connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this,
          &ClipsView::tellModel);
  connect(list_->selectionModel(), &QItemSelectionModel::currentChanged, this,
          &ClipsView::tellModel);
}

std::vector<QUuid> ClipsView::selectedIDs() const {
  QModelIndexList rows = list_->selectionModel()->selectedIndexes();
  std::sort(rows.begin(), rows.end());
  std::vector<QUuid> ids;
  for (const QModelIndex& row : rows) ids.push_back(row.data(RowsModel::idRole).toUuid());
  return ids;
}

// A list that gets the keyboard makes some row its current one without selecting it: that is no
// choice of the user's.
void ClipsView::tellModel() {
  const QModelIndex current = list_->currentIndex();
  if (current.isValid() && list_->selectionModel()->isSelected(current)) {
    model_.select(current.data(RowsModel::idRole).toUuid());
  }
  emit selectedIDsChanged();
}

void ClipsView::followModel() {
  const auto id = model_.selection();
  const QModelIndex row = id ? rows_.indexOf(*id) : QModelIndex();
  if (!row.isValid()) {
    list_->selectionModel()->clear();
  } else if (row != list_->currentIndex() || !list_->selectionModel()->isSelected(row)) {
    list_->selectionModel()->setCurrentIndex(row, QItemSelectionModel::ClearAndSelect);
    list_->scrollTo(row);
  }
}

// When the selected row goes, the next one is what the user wants to see; after the last, the one
// before.
void ClipsView::selectBeside(int first, int last) {
  const auto id = model_.selection();
  const int row = id ? rows_.indexOf(*id).row() : -1;
  if (row < first || row > last) {
    return;
  }
  for (const int neighbour : {last + 1, first - 1}) {
    const QModelIndex index = rows_.index(neighbour);
    if (index.flags().testFlag(Qt::ItemIsSelectable)) {
      list_->selectionModel()->setCurrentIndex(index, QItemSelectionModel::ClearAndSelect);
      return;
    }
  }
}

void ClipsView::refresh() {
  const auto references = shownReferences(model_);
  std::set<std::filesystem::path> files;
  for (const auto& [file, info] : references) files.insert(file);
  rows_.setReferences(std::move(files));
  reference_->show(references, model_.referenceChosenByUser());
}

void ClipsView::showMenu(const QPoint& place) {
  const QModelIndex row = list_->indexAt(place);
  if (!row.isValid() || !row.flags().testFlag(Qt::ItemIsEnabled)) {
    return;
  }
  if (!list_->selectionModel()->isSelected(row)) {
    list_->selectionModel()->setCurrentIndex(row, QItemSelectionModel::ClearAndSelect);
  }
  auto* menu = new QMenu(this);
  menu->setObjectName("itemMenu");
  menu->setAttribute(Qt::WA_DeleteOnClose);
  if (model_.selectedJoin() != nullptr) {
    menu->addAction(commands_.showParts());
  } else {
    menu->addAction(commands_.useAsReference());
    menu->addAction(commands_.showInFileManager());
  }
  menu->addSeparator();
  menu->addAction(commands_.remove());
  menu->popup(list_->viewport()->mapToGlobal(place));
}

}  // namespace tallowmark
