// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/RepairModel.h"

#include <algorithm>
#include <set>

#include "MediaKit/Naming/FolderWalk.h"
#include "TallowmarkRepair/Model/FlowStatus.h"
#include "TallowmarkRepair/Model/Summaries.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

template <class Case, class Item>
std::vector<Item> itemsIn(const std::vector<Item>& items) {
  std::vector<Item> chosen;
  std::copy_if(items.begin(), items.end(), std::back_inserter(chosen),
               [](const Item& item) { return item.template is<Case>(); });
  return chosen;
}

}  // namespace

RepairModel::RepairModel(Surroundings surroundings, QObject* parent)
    : QObject(parent),
      surroundings_(std::move(surroundings)),
      scratch_(surroundings_.scratchParent),
      clipWork_(clips_, workers_, scratch_, surroundings_),
      joinWork_(joins_, workers_, scratch_, surroundings_),
      workers_(surroundings_.threads),
      adders_(1) {
  announceChanges();
}

RepairModel::~RepairModel() = default;

void RepairModel::announceChanges() {
  const auto announce = [this](const QAbstractListModel& list, void (RepairModel::*signal)()) {
    connect(&list, &QAbstractItemModel::dataChanged, this, signal);
    connect(&list, &QAbstractItemModel::rowsInserted, this, signal);
    connect(&list, &QAbstractItemModel::rowsRemoved, this, signal);
    connect(&list, &QAbstractItemModel::modelReset, this, signal);
    connect(this, signal, this, &RepairModel::changed);
  };
  announce(clips_, &RepairModel::clipsChanged);
  announce(joins_, &RepairModel::joinsChanged);
  connect(this, &RepairModel::selectionChanged, this, &RepairModel::changed);
  connect(this, &RepairModel::referenceChanged, this, &RepairModel::changed);
}

void RepairModel::select(std::optional<QUuid> id) {
  if (selection_ != id) {
    selection_ = id;
    emit selectionChanged();
  }
}

const Clip* RepairModel::selectedClip() const {
  return selection_ ? clips_.find(*selection_) : nullptr;
}

const Join* RepairModel::selectedJoin() const {
  return selection_ ? joins_.find(*selection_) : nullptr;
}

std::vector<Clip> RepairModel::brokenClips() const {
  std::vector<Clip> broken;
  std::copy_if(clips().begin(), clips().end(), std::back_inserter(broken), FlowStatus::isBroken);
  return broken;
}

std::vector<Clip> RepairModel::savableClips() const {
  return itemsIn<Clip::Preview>(clips());
}

std::vector<Join> RepairModel::savableJoins() const {
  return itemsIn<Join::Preview>(joins());
}

std::vector<QUuid> RepairModel::savableIDs() const {
  std::vector<QUuid> ids;
  for (const Clip& clip : savableClips()) ids.push_back(clip.id);
  for (const Join& join : savableJoins()) ids.push_back(join.id);
  return ids;
}

bool RepairModel::isWorking() const {
  return FlowStatus::isWorking(clips(), joins());
}

int RepairModel::step() const {
  return FlowStatus::step(clips(), joins());
}

QString RepairModel::stepStatus() const {
  return FlowStatus::text(clips(), joins(), References::waiting(clips(), reference_));
}

void RepairModel::add(const std::vector<fs::path>& urls) {
  adders_.start(QUuid::createUuid(), Workers::Urgency::check,
                [this, urls](const Progress&, const StopToken& stop) -> Workers::Delivery {
                  auto files = findAddedFiles(urls, stop);
                  return [this, files = std::move(files)] { append(files); };
                });
}

void RepairModel::append(const std::vector<AddedFile>& files) {
  std::set<fs::path> known;
  for (const auto& [id, identity] : identities_) known.insert(identity);
  std::vector<Clip> added;
  for (const AddedFile& file : files) {
    if (known.contains(file.identity)) {
      continue;
    }
    Clip clip{QUuid::createUuid(), file.url, file.size};
    if (file.unreadableFolder) {
      clip.state = Clip::Failed{"Couldn't look into this folder."};
    }
    identities_[clip.id] = file.identity;
    wantAgain(clip.url);
    added.push_back(std::move(clip));
  }
  clips_.append(added);
  for (const Clip& clip : added) {
    if (clip.is<Clip::Checking>()) check(clip.id);
  }
  selectAfterChecking();
  emit filesAdded(static_cast<int>(added.size()));
}

void RepairModel::check(const QUuid& id) {
  clipWork_.check(id, [this](const QUuid& checked, const FileState::Any& found) {
    finishedChecking(checked, found);
  });
}

void RepairModel::finishedChecking(const QUuid& id, const FileState::Any& found) {
  const Clip* checked = clips_.find(id);
  if (checked == nullptr) {
    return;
  }
  Clip clip = *checked;
  clip.state = stateAfterChecking(found);
  const auto* missing = std::get_if<FileState::MissingIndex>(&found);
  clip.needsReference = missing != nullptr && missing->needsReference;
  const bool healthy = clip.is<Clip::Healthy>();
  clips_.replace(std::move(clip));
  if (healthy) {
    chooseReferenceAutomatically();
  }
  selectAfterChecking();
  finishedAllChecks();
}

// Split recordings are looked for, and references chosen, among all that was added: not before all
// of it was checked.
void RepairModel::finishedAllChecks() {
  if (std::none_of(clips().begin(), clips().end(),
                   [](const Clip& clip) { return clip.is<Clip::Checking>(); })) {
    chooseReferenceAutomatically();
    repairAllPending();
    offerSplitRecordings();
  }
}

void RepairModel::selectAfterChecking() {
  const auto isNamed = [this](const Clip& clip) {
    return clip.url.filename().string() == surroundings_.select;
  };
  const auto first = [this](const auto& condition) {
    const auto found = std::find_if(clips().begin(), clips().end(), condition);
    if (found != clips().end()) {
      select(found->id);
    }
  };
  if (!surroundings_.select.empty()) {
    first(isNamed);
  }
  if (!selection_) {
    first(FlowStatus::isBroken);
  }
}

void RepairModel::remove(const QUuid& id) {
  if (const Clip* clip = clips_.find(id)) {
    const fs::path url = clip->url;
    clipWork_.forget(id);
    identities_.erase(id);
    clips_.remove(id);
    if (reference_ && reference_->file == url) {
      setReferenceTo(std::nullopt);
    }
  } else if (const Join* join = joins_.find(id)) {
    if (join->foundAutomatically) unwanted_.push_back(join->parts);
    joinWork_.forget(id);
    joins_.remove(id);
  }
  if (selection_ == id) {
    select(std::nullopt);
  }
  chooseReferenceAutomatically();
  // It may have been the last that was checked, or have stood in another reference's way.
  finishedAllChecks();
}

void RepairModel::clear() {
  adders_.cancelAll();
  clipWork_.forgetAll();
  joinWork_.forgetAll();
  identities_.clear();
  unwanted_.clear();
  clips_.clear();
  joins_.clear();
  select(std::nullopt);
  setReferenceTo(std::nullopt);
}

void RepairModel::retry(const QUuid& id) {
  joins_.find(id) != nullptr ? joinWork_.prepare(id) : check(id);
}

void RepairModel::repairAllPending() {
  const ReferenceChoice choice = References::choiceAmong(clips());
  const std::vector<Clip> listed = clips();
  for (const Clip& clip : listed) {
    if (clip.is<Clip::RawFile>() || clip.is<Clip::Truncated>() || clip.is<Clip::MissingIndex>()) {
      clipWork_.preview(clip.id, References::triesFor(clip, reference_, choice));
    }
  }
}

void RepairModel::save(const std::vector<QUuid>& ids, const fs::path& folder) {
  for (const QUuid& id : ids) {
    joins_.find(id) != nullptr ? joinWork_.save(id, folder) : clipWork_.save(id, folder);
  }
}

std::optional<fs::path> RepairModel::previewFile(const QUuid& id) const {
  return joins_.find(id) != nullptr ? joinWork_.previewFile(id) : clipWork_.previewFile(id);
}

std::optional<fs::path> RepairModel::savedFile(const QUuid& id) const {
  return joins_.find(id) != nullptr ? joinWork_.savedFile(id) : clipWork_.savedFile(id);
}

const RepairDetails* RepairModel::repairDetails(const QUuid& id) const {
  return clipWork_.details(id);
}

std::vector<PartFacts> RepairModel::partFacts(const QUuid& id) const {
  return joinWork_.partFacts(id);
}

QString RepairModel::missingPartsNote(const Join& join) const {
  return QString::fromStdString(tallowmark::missingPartsNote(join, clips()));
}

bool RepairModel::isSaving(const QUuid& id) const {
  return clipWork_.isSaving(id);
}

}  // namespace tallowmark
