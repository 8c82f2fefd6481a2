// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/RepairPlan.h"

#include "CommandLine/OrderedWork.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Naming/SavedName.h"
#include "MediaKit/Rescue/ReferenceChoice.h"
#include "MediaKit/Rescue/ReferenceFile.h"

namespace tallowmark {

namespace {

// A good photo may be of help even where a photo's own header seems to do.
bool canUseReference(const FileState::Any& state) {
  return std::holds_alternative<FileState::MissingIndex>(state);
}

bool needsReference(const FileState::Any& state) {
  const auto* missing = std::get_if<FileState::MissingIndex>(&state);
  return missing != nullptr && missing->needsReference;
}

bool isBroken(const FileState::Any& state) {
  return !std::holds_alternative<FileState::Healthy>(state) &&
         !std::holds_alternative<FileState::NotAVideo>(state);
}

void useChosenReference(RepairPlan& plan, const std::filesystem::path& chosen) {
  std::optional<Kind> kind;
  std::string problem;
  try {
    kind = requireReference(chosen).kind;
  } catch (const MediaError& error) {
    problem = error.what();
  }
  for (std::size_t i = 0; i < plan.items.size(); ++i) {
    if (!canUseReference(plan.states[i])) {
      continue;
    }
    if (!problem.empty()) {
      if (needsReference(plan.states[i])) plan.states[i] = FileState::Failed{problem};
    } else if (plan.items[i].kind == kind) {
      plan.references[i].push_back(chosen);
    }
  }
}

void useHealthyItems(RepairPlan& plan) {
  std::vector<HealthyFile> healthy;
  std::vector<NamedFile> broken;
  for (std::size_t i = 0; i < plan.items.size(); ++i) {
    const Item& item = plan.items[i];
    if (const auto* good = std::get_if<FileState::Healthy>(&plan.states[i])) {
      healthy.push_back({{item.path, *item.kind}, good->info});
    } else if (item.kind && isBroken(plan.states[i])) {
      broken.push_back({item.path, *item.kind});
    }
  }
  const ReferenceChoice choice(healthy, broken);
  for (std::size_t i = 0; i < plan.items.size(); ++i) {
    if (canUseReference(plan.states[i])) {
      plan.references[i] = choice.referencesFor({plan.items[i].path, *plan.items[i].kind});
    }
  }
}

}  // namespace

bool RepairPlan::isRepairableAlone(std::size_t item) const {
  const FileState::Any& state = states[item];
  return std::holds_alternative<FileState::Truncated>(state) ||
         std::holds_alternative<FileState::RawFile>(state) ||
         (canUseReference(state) && !needsReference(state));
}

RepairTries RepairPlan::tries(std::size_t item) const {
  RepairTries tries(references[item].begin(), references[item].end());
  if (isRepairableAlone(item)) {
    tries.insert(tries.begin(), std::nullopt);
  }
  return tries;
}

bool RepairPlan::isRepairable(std::size_t item) const {
  return !tries(item).empty();
}

std::vector<std::vector<std::size_t>> RepairPlan::chains() const {
  std::vector<std::string> names;
  for (const Item& item : items) {
    const bool isRaw = item.kind == Kind::raw;
    names.push_back(savedName(item.path, isRaw ? SavedAs::rescued : SavedAs::repaired, 1));
  }
  return chainsByName(names);
}

RepairPlan planRepair(std::vector<Item> items, std::vector<FileState::Any> states,
                      const std::optional<std::filesystem::path>& chosen) {
  RepairPlan plan{std::move(items), std::move(states), {}};
  plan.references.resize(plan.items.size());
  if (chosen) {
    useChosenReference(plan, *chosen);
  } else {
    useHealthyItems(plan);
  }
  return plan;
}

}  // namespace tallowmark
