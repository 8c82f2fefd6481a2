// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <iostream>

#include "CommandLine/Commands.h"
#include "CommandLine/Destination.h"
#include "CommandLine/Interruption.h"
#include "CommandLine/JoinPlan.h"
#include "CommandLine/JsonText.h"
#include "CommandLine/OrderedWork.h"
#include "CommandLine/ProgressBar.h"
#include "CommandLine/Sentences.h"
#include "MediaKit/Naming/SavedName.h"

namespace tallowmark {

namespace {

// The clips of folders, and whatever was named itself: that it is no clip is then said.
std::vector<Item> partsFrom(const std::vector<std::filesystem::path>& paths) {
  std::vector<Item> items = itemsFrom(paths);
  const auto isBystander = [&](const Item& item) {
    return item.kind.value_or(Kind::video) != Kind::video &&
           std::find(paths.begin(), paths.end(), item.path) == paths.end();
  };
  items.erase(std::remove_if(items.begin(), items.end(), isBystander), items.end());
  return items;
}

std::vector<PlannedJoin> planned(const JoinRequest& request) {
  const std::vector<Item> items = partsFrom(request.paths);
  if (!request.find) {
    return {joinInNameOrder(items)};
  }
  return findJoins(items);
}

// Which joins must follow each other: those whose clips want the same name.
std::vector<std::vector<std::size_t>> chainsOf(const std::vector<JoinOutcome>& outcomes) {
  std::vector<std::string> names;
  for (const JoinOutcome& outcome : outcomes) {
    const auto& parts = outcome.join.parts;
    names.push_back(parts.empty() ? "" : savedName(parts.front(), SavedAs::joined, 1));
  }
  return chainsByName(names);
}

bool isWell(const JoinOutcome& outcome) {
  return outcome.end && std::holds_alternative<JoinState::Saved>(*outcome.end);
}

}  // namespace

int runJoin(const JoinRequest& request) {
  const StopToken stop = Interruption::token();
  std::vector<JoinOutcome> outcomes;
  std::vector<std::uint64_t> sizes;
  for (PlannedJoin& join : planned(request)) {
    sizes.push_back(join.joinable ? join.size : 0);
    outcomes.push_back({std::move(join), {}});
  }
  if (outcomes.empty()) {
    std::cerr << "No split recordings were found.\n";
  }
  const std::string problem = prepareDestination(request.folder);
  ProgressBar bar(sizes);
  int status = ExitStatus::allWell;

  const auto work = [&](std::size_t i) {
    JoinOutcome& outcome = outcomes[i];
    if (!outcome.join.joinable || !problem.empty()) {
      outcome.end = JoinState::Failed{outcome.join.joinable ? problem : outcome.join.note};
      return;
    }
    try {
      outcome.end = saveJoinedClip(
          outcome.join.parts, request.folder, [&](double done) { bar.update(i, done); }, stop);
    } catch (const Stopped&) {
      // There is no end.
    }
  };
  const auto report = [&](std::size_t i) {
    const JoinOutcome& outcome = outcomes[i];
    status = isWell(outcome) ? status : ExitStatus::someNotWell;
    if (outcome.end) {
      bar.print(request.json ? lineOf(joinJson(outcome)) : joinSentence(outcome));
    }
  };
  workInOrder(chainsOf(outcomes), work, report);
  return status;
}

}  // namespace tallowmark
