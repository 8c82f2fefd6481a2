// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/ClipWork.h"

#include <utility>

namespace tallowmark {

namespace fs = std::filesystem;

using Urgency = Workers::Urgency;

void ClipWork::check(const QUuid& id, Checked finished) {
  const Clip* clip = clips_.find(id);
  if (clip == nullptr) {
    return;
  }
  const ClipJobs::Check job{clip->url, clip->kind()};
  forget(id);
  clips_.setState(id, Clip::Checking{});
  workers_.start(id, Urgency::check,
                 [job, &with = surroundings_, id, finished = std::move(finished)](
                     const Progress&, const StopToken& stop) -> Workers::Delivery {
                   auto found = ClipJobs::run(job, with, stop);
                   return [id, finished, found = std::move(found)] { finished(id, found); };
                 });
}

void ClipWork::preview(const QUuid& id, RepairTries tries) {
  const Clip* clip = clips_.find(id);
  if (clip == nullptr || tries.empty()) {
    return;
  }
  // The place goes with whatever holds it: with work that is cancelled nothing stays behind.
  const auto place = scratch_.newPlace();
  const std::string extension =
      clip->kind() == Kind::video ? clip->url.extension().string() : ".jpg";
  ClipJobs::Preview job{clip->url, clip->kind(), std::move(tries),
                        place->filesFor(clip->url, extension)};
  forget(id);
  clips_.setState(id, Clip::Repairing{});
  workers_.start(
      id, Urgency::preview,
      [this, id, job = std::move(job), &with = surroundings_, place](
          const Progress& progress, const StopToken& stop) -> Workers::Delivery {
        auto result = ClipJobs::run(job, with, progress, stop);
        return
            [this, id, result = std::move(result), place] { finishedPreview(id, result, place); };
      },
      [this, id](double fraction) { progress(id, fraction); });
}

void ClipWork::save(const QUuid& id, const fs::path& folder) {
  const Clip* clip = clips_.find(id);
  if (clip == nullptr || !clip->is<Clip::Preview>()) {
    return;
  }
  Record& record = records_[id];
  record.saving = true;
  const ClipJobs::Save job{{clip->url, clip->kind(), record.reference, record.learnt}, folder};
  clips_.setState(id, Clip::Repairing{});
  workers_.start(
      id, Urgency::save,
      [this, id, job, &with = surroundings_](const Progress& progress,
                                             const StopToken& stop) -> Workers::Delivery {
        auto result = ClipJobs::run(job, with, progress, stop);
        return [this, id, result = std::move(result)] { finishedSave(id, result); };
      },
      [this, id](double fraction) { progress(id, fraction); });
}

void ClipWork::progress(const QUuid& id, double fraction) {
  const Clip* clip = clips_.find(id);
  const auto* repairing = clip == nullptr ? nullptr : std::get_if<Clip::Repairing>(&clip->state);
  // Another try begins anew; what the user sees does not go back.
  if (repairing != nullptr && fraction > repairing->fraction) {
    clips_.setState(id, Clip::Repairing{fraction});
  }
}

void ClipWork::finishedPreview(const QUuid& id, const ClipJobs::PreviewResult& result,
                               std::shared_ptr<const ScratchPlace> place) {
  Record record;
  record.place = std::move(place);
  record.preview = result.preview;
  record.reference = result.reference;
  record.details = result.details;
  if (result.learnt && hasMemoryFor(*result.learnt)) {
    record.learnt = result.learnt;
  }
  records_[id] = std::move(record);
  clips_.setState(id, result.state);
}

void ClipWork::finishedSave(const QUuid& id, const ClipJobs::SaveResult& result) {
  Record& record = records_[id];
  record.saving = false;
  record.copy = result.copy;
  record.learnt = nullptr;
  clips_.setState(id, result.state);
}

// A card full of long clips: those that find no room are worked out again when they are saved.
bool ClipWork::hasMemoryFor(const LearntClip& learnt) const {
  constexpr std::size_t most = std::size_t{128} << 20U;
  std::size_t total = learnt.bytes();
  for (const auto& [id, record] : records_) {
    total += record.learnt ? record.learnt->bytes() : 0;
  }
  return total <= most;
}

void ClipWork::forget(const QUuid& id) {
  workers_.cancel(id);
  records_.erase(id);
}

void ClipWork::forgetAll() {
  workers_.cancelAll();
  records_.clear();
}

const ClipWork::Record* ClipWork::recordOf(const QUuid& id) const {
  const auto found = records_.find(id);
  return found == records_.end() ? nullptr : &found->second;
}

bool ClipWork::isSaving(const QUuid& id) const {
  const Record* record = recordOf(id);
  return record != nullptr && record->saving;
}

std::optional<fs::path> ClipWork::previewFile(const QUuid& id) const {
  const Record* record = recordOf(id);
  std::error_code error;
  return record != nullptr && record->preview && fs::exists(*record->preview, error)
             ? record->preview
             : std::nullopt;
}

std::optional<fs::path> ClipWork::savedFile(const QUuid& id) const {
  const Record* record = recordOf(id);
  return record != nullptr ? record->copy : std::nullopt;
}

std::optional<fs::path> ClipWork::referenceUsed(const QUuid& id) const {
  const Record* record = recordOf(id);
  return record != nullptr ? record->reference : std::nullopt;
}

const RepairDetails* ClipWork::details(const QUuid& id) const {
  const Record* record = recordOf(id);
  return record != nullptr && record->details ? &*record->details : nullptr;
}

}  // namespace tallowmark
