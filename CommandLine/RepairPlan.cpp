// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/RepairPlan.h"

#include <algorithm>

#include "CommandLine/OrderedWork.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Naming/Reference.h"
#include "MediaKit/Naming/SavedName.h"
#include "MediaKit/Rescue/ReferenceFile.h"

namespace tallowmark {

namespace {

bool needsReference(const FileState::Any& state) {
  return std::holds_alternative<FileState::MissingIndex>(state);
}

bool isBroken(const FileState::Any& state) {
  return !std::holds_alternative<FileState::Healthy>(state) &&
         !std::holds_alternative<FileState::NotAVideo>(state);
}

void useChosenReference(RepairPlan& plan, const std::filesystem::path& chosen) {
  std::optional<Kind> kind;
  std::string problem;
  try {
    kind = requireReference(chosen);
  } catch (const MediaError& error) {
    problem = error.what();
  }
  for (std::size_t i = 0; i < plan.items.size(); ++i) {
    if (!needsReference(plan.states[i])) {
      continue;
    }
    if (!problem.empty()) {
      plan.states[i] = FileState::Failed{problem};
    } else if (plan.items[i].kind == kind) {
      plan.references[i].push_back(chosen);
    }
  }
}

// The best reference of every sort there is: clips alike in codec, size, rate and sound teach the
// same, so that a second one of a sort that failed would fail, too.
void useHealthyItems(RepairPlan& plan) {
  std::vector<NamedFile> healthy;
  std::vector<ClipInfo> facts;
  std::vector<NamedFile> broken;
  for (std::size_t i = 0; i < plan.items.size(); ++i) {
    const Item& item = plan.items[i];
    if (const auto* good = std::get_if<FileState::Healthy>(&plan.states[i])) {
      healthy.push_back({item.path, *item.kind});
      facts.push_back(good->info);
      facts.back().seconds = 0;
    } else if (item.kind && isBroken(plan.states[i])) {
      broken.push_back({item.path, *item.kind});
    }
  }
  for (std::size_t i = 0; i < plan.items.size(); ++i) {
    if (!needsReference(plan.states[i])) {
      continue;
    }
    std::vector<ClipInfo> tried;
    for (const std::size_t best :
         rankReferences({plan.items[i].path, *plan.items[i].kind}, healthy, broken)) {
      if (std::find(tried.begin(), tried.end(), facts[best]) == tried.end()) {
        tried.push_back(facts[best]);
        plan.references[i].push_back(healthy[best].path);
      }
    }
  }
}

}  // namespace

bool RepairPlan::isRepairable(std::size_t item) const {
  return std::holds_alternative<FileState::Truncated>(states[item]) || !references[item].empty();
}

std::vector<std::vector<std::size_t>> RepairPlan::chains() const {
  std::vector<std::string> names;
  for (const Item& item : items) names.push_back(savedName(item.path, SavedAs::repaired, 1));
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
