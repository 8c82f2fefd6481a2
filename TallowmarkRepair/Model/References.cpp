// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/References.h"

#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <vector>

#include "MediaKit/Naming/CameraKey.h"
#include "TallowmarkRepair/Model/FlowStatus.h"

namespace tallowmark::References {

namespace {

bool isRepairableAlone(const Clip& clip) {
  return clip.is<Clip::Truncated>() || clip.is<Clip::RawFile>() ||
         (clip.is<Clip::MissingIndex>() && !clip.needsReference);
}

bool isChosenByUser(const std::optional<Reference>& reference) {
  return reference && reference->chosenByUser;
}

Kind kindOfReference(const Reference& reference) {
  return kindOf(reference.file).value_or(Kind::video);
}

}  // namespace

std::optional<Reference> automatic(std::span<const Clip> clips) {
  std::set<std::string> brokenKeys;
  for (const Clip& clip : clips) {
    if (FlowStatus::isBroken(clip)) {
      brokenKeys.insert(cameraKey(clip.url));
    }
  }
  const auto isHealthy = [](const Clip& clip) { return clip.is<Clip::Healthy>(); };
  auto chosen = std::find_if(clips.begin(), clips.end(), [&](const Clip& clip) {
    return isHealthy(clip) && brokenKeys.contains(cameraKey(clip.url));
  });
  if (chosen == clips.end()) {
    chosen = std::find_if(clips.begin(), clips.end(), isHealthy);
  }
  return chosen == clips.end()
             ? std::nullopt
             : std::optional(Reference{chosen->url, std::get<Clip::Healthy>(chosen->state).info});
}

ReferenceChoice choiceAmong(std::span<const Clip> clips) {
  std::vector<HealthyFile> healthy;
  std::vector<NamedFile> broken;
  for (const Clip& clip : clips) {
    if (const auto* state = std::get_if<Clip::Healthy>(&clip.state)) {
      healthy.push_back({{clip.url, clip.kind()}, state->info.value_or(ClipInfo())});
    } else if (FlowStatus::isBroken(clip)) {
      broken.push_back({clip.url, clip.kind()});
    }
  }
  return {healthy, broken};
}

RepairTries triesFor(const Clip& clip, const std::optional<Reference>& reference,
                     const ReferenceChoice& choice) {
  RepairTries tries;
  if (isRepairableAlone(clip)) {
    tries.emplace_back(std::nullopt);
  }
  if (clip.kind() == Kind::raw || clip.is<Clip::Truncated>()) {
    return tries;
  }
  if (!isChosenByUser(reference)) {
    const auto ranked = choice.referencesFor({clip.url, clip.kind()});
    tries.insert(tries.end(), ranked.begin(), ranked.end());
  } else if (kindOfReference(*reference) == clip.kind()) {
    tries.emplace_back(reference->file);
  }
  return tries;
}

std::size_t waiting(std::span<const Clip> clips, const std::optional<Reference>& reference) {
  // Asked with every change of a list of hundreds: kinds are looked up for those that wait alone.
  std::array<std::size_t, 3> missing{};
  for (const Clip& clip : clips) {
    if (clip.needsReference && clip.is<Clip::MissingIndex>()) {
      ++missing.at(static_cast<std::size_t>(clip.kind()));
    }
  }
  std::size_t count = 0;
  for (const Kind kind : {Kind::video, Kind::photo}) {
    const std::size_t ofKind = missing.at(static_cast<std::size_t>(kind));
    const auto isGood = [&](const Clip& clip) {
      return clip.is<Clip::Healthy>() && clip.kind() == kind;
    };
    if (ofKind > 0 &&
        !(isChosenByUser(reference) ? kindOfReference(*reference) == kind
                                    : std::any_of(clips.begin(), clips.end(), isGood))) {
      count += ofKind;
    }
  }
  return count;
}

}  // namespace tallowmark::References
