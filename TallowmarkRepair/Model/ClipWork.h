// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "TallowmarkRepair/Model/ClipJobs.h"
#include "TallowmarkRepair/Model/ItemList.h"
#include "TallowmarkRepair/Model/Workers.h"

namespace tallowmark {

/// Starts the work on clips, moves their states along with it, and keeps what it gave: previews,
/// references, copies. Belongs to the main thread; `clips`, `workers` and the others outlive it.
class ClipWork {
 public:
  using Checked = std::function<void(const QUuid&, const FileState::Any&)>;

  ClipWork(ItemList<Clip>& clips, Workers& workers, ScratchFolder& scratch,
           const Surroundings& surroundings)
      : clips_(clips), workers_(workers), scratch_(scratch), surroundings_(surroundings) {}

  /// Diagnoses a clip, which is `Checking` meanwhile, and calls `finished`.
  void check(const QUuid& id, Checked finished);
  /// Repairs a clip into the scratch folder: `Repairing`, then `Preview` or `Failed`.
  void preview(const QUuid& id, RepairTries tries);
  /// Writes the full-quality copy of a clip that is in `Preview`, other ids are left alone:
  /// `Repairing`, then `Saved` or `Failed`.
  void save(const QUuid& id, const std::filesystem::path& folder);

  /// Ends the work on a clip and removes its preview; the clip's state stays.
  void forget(const QUuid& id);
  void forgetAll();

  bool isSaving(const QUuid& id) const;
  std::optional<std::filesystem::path> previewFile(const QUuid& id) const;
  std::optional<std::filesystem::path> savedFile(const QUuid& id) const;
  /// What the clip was repaired with.
  std::optional<std::filesystem::path> referenceUsed(const QUuid& id) const;
  /// Null until the clip is repaired; valid until its work goes on.
  const RepairDetails* details(const QUuid& id) const;

 private:
  struct Record {
    std::shared_ptr<const ScratchPlace> place;
    std::shared_ptr<const LearntClip> learnt;
    std::optional<std::filesystem::path> preview;
    std::optional<std::filesystem::path> reference;
    std::optional<RepairDetails> details;
    std::optional<std::filesystem::path> copy;
    bool saving = false;
  };

  const Record* recordOf(const QUuid& id) const;
  void progress(const QUuid& id, double fraction);
  void finishedPreview(const QUuid& id, const ClipJobs::PreviewResult& result,
                       std::shared_ptr<const ScratchPlace> place);
  void finishedSave(const QUuid& id, const ClipJobs::SaveResult& result);
  bool hasMemoryFor(const LearntClip& learnt) const;

  ItemList<Clip>& clips_;
  Workers& workers_;
  ScratchFolder& scratch_;
  const Surroundings& surroundings_;
  std::map<QUuid, Record> records_;
};

}  // namespace tallowmark
