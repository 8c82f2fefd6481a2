// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/JoinWork.h"

#include <algorithm>
#include <utility>

#include "DeviceKit/PendingFile.h"
#include "MediaKit/Join/Recordings.h"

namespace tallowmark {

namespace fs = std::filesystem;

using Urgency = Workers::Urgency;

namespace {

Join::State stateOf(const JoinState::Prepared& prepared) {
  return Join::Preview{prepared.result};
}
Join::State stateOf(const JoinState::Saved& saved) {
  return Join::Saved{saved.result};
}
Join::State stateOf(const JoinState::Incompatible& incompatible) {
  return Join::Incompatible{incompatible.message};
}
Join::State stateOf(const JoinState::Failed& failed) {
  return Join::Failed{failed.message};
}

struct HealthyClips {
  explicit HealthyClips(std::span<const Clip> clips) {
    for (const Clip& clip : clips) {
      if (clip.is<Clip::Healthy>() && clip.kind() == Kind::video) {
        paths.push_back(clip.url);
        files.push_back(
            {clip.url.parent_path().string(), {clip.url.filename().string(), clip.size}});
      }
    }
  }

  std::vector<fs::path> paths;
  std::vector<ClipJoin::LocatedFile> files;
};

template <class Outcome>
Join::State stateAfter(const Outcome& outcome) {
  return std::visit([](const auto& end) { return stateOf(end); }, outcome);
}

}  // namespace

std::vector<std::vector<fs::path>> splitRecordingsAmong(std::span<const Clip> clips) {
  const HealthyClips healthy(clips);
  std::vector<std::vector<fs::path>> recordings;
  for (const ClipJoin::Group& group : ClipJoin::findRecordings(healthy.files).groups) {
    std::vector<fs::path>& recording = recordings.emplace_back();
    for (const std::size_t index : group) recording.push_back(healthy.paths[index]);
  }
  return recordings;
}

std::string missingPartsNote(const Join& join, std::span<const Clip> clips) {
  if (!join.foundAutomatically) {
    return {};
  }
  const HealthyClips healthy(clips);
  for (const auto& incomplete : ClipJoin::findRecordings(healthy.files).incomplete) {
    const fs::path& present = healthy.paths[incomplete.present.front()];
    if (std::find(join.parts.begin(), join.parts.end(), present) != join.parts.end()) {
      return incomplete.sentence;
    }
  }
  return {};
}

void JoinWork::prepare(const QUuid& id) {
  const Join* join = joins_.find(id);
  if (join == nullptr) {
    return;
  }
  forget(id);
  const auto parts = join->parts;
  const auto place = scratch_.newPlace();
  const PreviewFiles files = parts.empty() ? PreviewFiles{} : place->seamFilesFor(parts.front());
  joins_.setState(id, Join::Checking{});
  workers_.start(id, Urgency::preview,
                 [this, id, parts, place, files, &with = surroundings_](
                     const Progress&, const StopToken& stop) -> Workers::Delivery {
                   const auto end = previewJoin(parts, files, with.previewer, stop);
                   const auto* prepared = std::get_if<JoinState::Prepared>(&end);
                   Record record;
                   record.place = place;
                   if (prepared != nullptr) record.parts = prepared->parts;
                   if (prepared != nullptr && prepared->viewable) record.preview = files.preview;
                   return [this, id, state = stateAfter(end), record] {
                     finishedJoin(id, state, record);
                   };
                 });
}

void JoinWork::save(const QUuid& id, const fs::path& folder) {
  const Join* join = joins_.find(id);
  if (join == nullptr || !join->is<Join::Preview>()) {
    return;
  }
  const auto parts = join->parts;
  const Record record = records_[id];
  joins_.setState(id, Join::Joining{});
  workers_.start(
      id, Urgency::save,
      [this, id, parts, folder, record](const Progress& progress,
                                        const StopToken& stop) -> Workers::Delivery {
        removeAbandonedFiles(folder);
        const auto end = saveJoinedClip(parts, folder, progress, stop);
        Record finished = record;
        if (const auto* saved = std::get_if<JoinState::Saved>(&end)) finished.copy = saved->path;
        return [this, id, state = stateAfter(end), finished] { finishedJoin(id, state, finished); };
      },
      [this, id](double fraction) { joinProgress(id, fraction); });
}

void JoinWork::joinProgress(const QUuid& id, double fraction) {
  const Join* join = joins_.find(id);
  const auto* joining = join == nullptr ? nullptr : std::get_if<Join::Joining>(&join->state);
  if (joining != nullptr && fraction > joining->fraction) {
    joins_.setState(id, Join::Joining{fraction});
  }
}

void JoinWork::finishedJoin(const QUuid& id, Join::State state, Record record) {
  records_[id] = std::move(record);
  joins_.setState(id, std::move(state));
}

void JoinWork::forget(const QUuid& id) {
  workers_.cancel(id);
  records_.erase(id);
}

void JoinWork::forgetAll() {
  records_.clear();
}

std::optional<fs::path> JoinWork::previewFile(const QUuid& id) const {
  const auto found = records_.find(id);
  std::error_code error;
  return found != records_.end() && found->second.preview &&
                 fs::exists(*found->second.preview, error)
             ? found->second.preview
             : std::nullopt;
}

std::optional<fs::path> JoinWork::savedFile(const QUuid& id) const {
  const auto found = records_.find(id);
  return found != records_.end() ? found->second.copy : std::nullopt;
}

std::vector<PartFacts> JoinWork::partFacts(const QUuid& id) const {
  const auto found = records_.find(id);
  return found != records_.end() ? found->second.parts : std::vector<PartFacts>();
}

}  // namespace tallowmark
