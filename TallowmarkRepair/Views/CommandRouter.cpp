// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Views/CommandRouter.h"

#include <algorithm>

#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

template <class Item>
const Item* find(const std::vector<Item>& items, const QUuid& id) {
  const auto found =
      std::find_if(items.begin(), items.end(), [&](const Item& item) { return item.id == id; });
  return found == items.end() ? nullptr : &*found;
}

}  // namespace

CommandRouter::CommandRouter(RepairModel& model, Commands& commands, ClipPicker& picker,
                             Desktop& desktop, SelectedIDs selectedIDs)
    : model_(model),
      commands_(commands),
      picker_(picker),
      desktop_(desktop),
      selectedIDs_(std::move(selectedIDs)) {
  connectAdding();
  connectItems();
  connectSaving();
  refresh();
}

void CommandRouter::connectAdding() {
  connect(commands_.add(), &QAction::triggered, this, [this] { picker_.addClips(model_); });
  connect(commands_.addFolder(), &QAction::triggered, this, [this] { picker_.addFolder(model_); });
  connect(commands_.joinParts(), &QAction::triggered, this, [this] { picker_.joinClips(model_); });
  connect(commands_.chooseReference(), &QAction::triggered, this, [this] {
    picker_.chooseReference([this](const fs::path& file) { useAsReference(file); });
  });
  connect(commands_.clear(), &QAction::triggered, this, [this] { model_.clear(); });
}

void CommandRouter::connectItems() {
  connect(commands_.useAsReference(), &QAction::triggered, this, [this] {
    if (const Clip* selected = model_.selectedClip()) {
      useAsReference(selected->url);
    }
  });
  connect(commands_.retry(), &QAction::triggered, this, [this] {
    for (const QUuid& id : selectedIDs_()) {
      if (canRetry(id)) model_.retry(id);
    }
  });
  connect(commands_.remove(), &QAction::triggered, this, [this] {
    for (const QUuid& id : selectedIDs_()) model_.remove(id);
  });
  connect(commands_.showInFileManager(), &QAction::triggered, this,
          [this] { desktop_.reveal(selectedFiles()); });
  connect(commands_.showParts(), &QAction::triggered, this, [this] {
    if (const Join* selected = model_.selectedJoin()) {
      desktop_.reveal(selected->parts);
    }
  });
  connect(commands_.openSaved(), &QAction::triggered, this, [this] {
    for (const QUuid& id : selectedIDs_()) {
      if (const auto copy = model_.savedFile(id)) desktop_.open(*copy);
    }
  });
}

// What is selected when the panel comes is meant, not when it goes.
void CommandRouter::connectSaving() {
  const auto saveInto = [this](std::vector<QUuid> ids) {
    picker_.chooseSaveFolder(
        [this, ids = std::move(ids)](const fs::path& folder) { model_.save(ids, folder); });
  };
  connect(commands_.save(), &QAction::triggered, this, [this, saveInto] {
    std::vector<QUuid> ids = selectedIDs_();
    std::erase_if(ids, [this](const QUuid& id) { return !isSavable(id); });
    saveInto(std::move(ids));
  });
  connect(commands_.saveAll(), &QAction::triggered, this,
          [this, saveInto] { saveInto(model_.savableIDs()); });
}

void CommandRouter::useAsReference(const fs::path& file) {
  try {
    model_.setReference(file);
  } catch (const MediaError& error) {
    emit referenceRefused(QString::fromUtf8(error.what()));
  }
}

const Clip* CommandRouter::clip(const QUuid& id) const {
  return find(model_.clips(), id);
}

const Join* CommandRouter::join(const QUuid& id) const {
  return find(model_.joins(), id);
}

bool CommandRouter::isSavable(const QUuid& id) const {
  const Clip* file = clip(id);
  const Join* recording = join(id);
  return (file != nullptr && file->is<Clip::Preview>()) ||
         (recording != nullptr && recording->is<Join::Preview>());
}

bool CommandRouter::canRetry(const QUuid& id) const {
  const Clip* file = clip(id);
  const Join* recording = join(id);
  return (file != nullptr && (file->is<Clip::Failed>() || file->is<Clip::NotAVideo>())) ||
         (recording != nullptr &&
          (recording->is<Join::Failed>() || recording->is<Join::Incompatible>()));
}

std::vector<fs::path> CommandRouter::selectedFiles() const {
  std::vector<fs::path> files;
  for (const QUuid& id : selectedIDs_()) {
    if (const auto copy = model_.savedFile(id)) {
      files.push_back(*copy);
    } else if (const Clip* file = clip(id)) {
      files.push_back(file->url);
    } else if (const Join* recording = join(id)) {
      files.insert(files.end(), recording->parts.begin(), recording->parts.end());
    }
  }
  return files;
}

void CommandRouter::refresh() {
  const std::vector<QUuid> ids = selectedIDs_();
  const auto some = [&](const auto& condition) {
    return std::any_of(ids.begin(), ids.end(), condition);
  };
  const auto isSaved = [this](const QUuid& id) { return model_.savedFile(id).has_value(); };
  const auto isClip = [this](const QUuid& id) { return clip(id) != nullptr; };
  const auto isJoin = [this](const QUuid& id) { return join(id) != nullptr; };
  commands_.saveAll()->setEnabled(!model_.savableIDs().empty());
  commands_.clear()->setEnabled(!model_.clips().empty() || !model_.joins().empty());
  const auto savable =
      std::count_if(ids.begin(), ids.end(), [this](const QUuid& id) { return isSavable(id); });
  commands_.save()->setEnabled(savable > 0);
  commands_.save()->setText(savable > 1 ? tr("Save %1 Copies…").arg(savable) : tr("Save…"));
  commands_.retry()->setEnabled(some([this](const QUuid& id) { return canRetry(id); }));
  commands_.remove()->setEnabled(!ids.empty());
  commands_.showInFileManager()->setEnabled(!ids.empty());
  commands_.openSaved()->setEnabled(some(isSaved));
  commands_.useAsReference()->setEnabled(ids.size() == 1 && some(isClip));
  commands_.showParts()->setEnabled(ids.size() == 1 && some(isJoin));
}

}  // namespace tallowmark
