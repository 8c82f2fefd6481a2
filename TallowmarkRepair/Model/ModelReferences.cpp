// SPDX-License-Identifier: GPL-3.0-or-later
// The part of RepairModel that has to do with references.
#include <algorithm>

#include "MediaKit/Rescue/ReferenceFile.h"
#include "TallowmarkRepair/Model/FlowStatus.h"
#include "TallowmarkRepair/Model/RepairModel.h"

namespace tallowmark {

namespace fs = std::filesystem;

std::optional<fs::path> RepairModel::reference() const {
  return reference_ ? std::optional(reference_->file) : std::nullopt;
}

std::optional<ClipInfo> RepairModel::referenceInfo() const {
  return reference_ ? reference_->info : std::nullopt;
}

void RepairModel::setReferenceTo(std::optional<Reference> reference) {
  if (reference_ != reference) {
    reference_ = std::move(reference);
    emit referenceChanged();
  }
}

void RepairModel::chooseReferenceAutomatically() {
  if (!referenceChosenByUser()) {
    setReferenceTo(References::automatic(clips()));
  }
}

std::optional<fs::path> RepairModel::reference(const Clip& clip) const {
  if (clip.kind() == Kind::raw) {
    return std::nullopt;
  }
  Clip asked = clip;
  asked.state = Clip::MissingIndex{};
  asked.needsReference = true;
  const auto tries = References::triesFor(asked, reference_, References::choiceAmong(clips()));
  return tries.empty() ? std::nullopt : tries.front();
}

std::vector<RepairModel::ReferenceInUse> RepairModel::referencesInUse() const {
  const ReferenceChoice choice = References::choiceAmong(clips());
  std::vector<ReferenceInUse> used;
  const auto infoOf = [this](const fs::path& file) -> std::optional<ClipInfo> {
    for (const Clip& clip : clips()) {
      const auto* healthy = std::get_if<Clip::Healthy>(&clip.state);
      if (healthy != nullptr && clip.url == file) {
        return healthy->info;
      }
    }
    return reference_ && reference_->file == file ? reference_->info : std::nullopt;
  };
  for (Clip clip : clips()) {
    if (!clip.needsReference || !FlowStatus::isBroken(clip)) {
      continue;
    }
    std::optional<fs::path> file = clipWork_.referenceUsed(clip.id);
    if (!file) {
      clip.state = Clip::MissingIndex{};
      const auto tries = References::triesFor(clip, reference_, choice);
      file = tries.empty() ? std::nullopt : tries.front();
    }
    const auto isFile = [&](const ReferenceInUse& known) { return known.first == *file; };
    if (file && std::none_of(used.begin(), used.end(), isFile)) {
      used.emplace_back(*file, infoOf(*file));
    }
  }
  return used;
}

void RepairModel::setReference(const fs::path& url) {
  const fs::path file = fs::absolute(url).lexically_normal();
  const auto listed = std::find_if(clips().begin(), clips().end(), [&](const Clip& clip) {
    return clip.url == file && clip.is<Clip::Healthy>();
  });
  // What was found healthy need not be read again while the user waits.
  const ReferenceFile good =
      listed == clips().end()
          ? requireReference(file, surroundings_.open)
          : ReferenceFile{listed->kind(), listed->kind() == Kind::video
                                              ? std::get<Clip::Healthy>(listed->state).info
                                              : std::nullopt};
  setReferenceTo(Reference{file, good.info, true});
  repairAgainWith(good.kind);
  repairAllPending();
}

// What the new reference can do nothing for keeps what was made of it; so does what is being saved:
// the user looked at that and wanted it.
void RepairModel::repairAgainWith(Kind kind) {
  const std::vector<Clip> listed = clips();
  for (const Clip& clip : listed) {
    if (clip.needsReference && clip.kind() == kind && !clip.is<Clip::Saved>() &&
        !clip.is<Clip::Checking>() && !clipWork_.isSaving(clip.id)) {
      clipWork_.forget(clip.id);
      clips_.setState(clip.id, Clip::MissingIndex{});
    }
  }
}

}  // namespace tallowmark
