// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "TallowmarkRepair/Model/ItemList.h"
#include "TallowmarkRepair/Model/Surroundings.h"
#include "TallowmarkRepair/Model/Workers.h"

namespace tallowmark {

/// The recordings that cameras split among the healthy clips: their files in playing order.
std::vector<std::vector<std::filesystem::path>> splitRecordingsAmong(std::span<const Clip> clips);

/// What is to be said of a recording of which a piece seems not to be among the clips; empty where
/// all is there.
std::string missingPartsNote(const Join& join, std::span<const Clip> clips);

/// Starts the work on joins, moves their states along with it, and keeps what it gave. Belongs to
/// the main thread; what it is given outlives it.
class JoinWork {
 public:
  JoinWork(ItemList<Join>& joins, Workers& workers, ScratchFolder& scratch,
           const Surroundings& surroundings)
      : joins_(joins), workers_(workers), scratch_(scratch), surroundings_(surroundings) {}

  /// Checks the parts and makes the preview of the seam: `Checking`, then `Preview`, `Incompatible`
  /// or `Failed`.
  void prepare(const QUuid& id);
  /// Writes the joined clip of a join that is in `Preview`, other ids are left alone: `Joining`,
  /// then `Saved`, `Incompatible` or `Failed`.
  void save(const QUuid& id, const std::filesystem::path& folder);

  /// Ends the work on a join and removes its preview; the join's state stays.
  void forget(const QUuid& id);
  void forgetAll();

  std::optional<std::filesystem::path> previewFile(const QUuid& id) const;
  std::optional<std::filesystem::path> savedFile(const QUuid& id) const;
  /// Of each part, in playing order; empty until they are checked.
  std::vector<PartFacts> partFacts(const QUuid& id) const;

 private:
  struct Record {
    std::shared_ptr<const ScratchPlace> place;
    std::optional<std::filesystem::path> preview;
    std::vector<PartFacts> parts;
    std::optional<std::filesystem::path> copy;
  };

  void joinProgress(const QUuid& id, double fraction);
  void finishedJoin(const QUuid& id, Join::State state, Record record);

  ItemList<Join>& joins_;
  Workers& workers_;
  ScratchFolder& scratch_;
  const Surroundings& surroundings_;
  std::map<QUuid, Record> records_;
};

}  // namespace tallowmark
