// SPDX-License-Identifier: GPL-3.0-or-later
#include <iostream>

#include "CommandLine/Commands.h"
#include "CommandLine/Destination.h"
#include "CommandLine/Interruption.h"
#include "CommandLine/JsonText.h"
#include "CommandLine/OrderedWork.h"
#include "CommandLine/ProgressBar.h"
#include "CommandLine/RepairPlan.h"
#include "CommandLine/Sentences.h"
#include "DecoderKit/FFmpegDecoder.h"
#include "ImageKit/LibraryImageService.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Rescue/Explain.h"
#include "MediaKit/Rescue/SavedCopy.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

std::vector<FileState::Any> checkAll(const std::vector<Item>& items, const StopToken& stop) {
  std::vector<FileState::Any> states(items.size());
  const auto check = [&](std::size_t i) {
    if (!stop.stopRequested()) {
      states[i] = checkItem(items[i]);
    }
  };
  workInOrder(independent(items.size()), check, [](std::size_t) {});
  return states;
}

class Repairer {
 public:
  Repairer(const RepairPlan& plan, const RepairRequest& request)
      : plan_(plan),
        folder_(request.folder),
        folderProblem_(prepareDestination(request.folder)),
        depth_(request.basic ? VideoRepair::Depth::basic : VideoRepair::Depth::full) {}

  /// Throws Stopped, nothing else but for want of memory.
  RepairOutcome repair(std::size_t item, const Progress& progress, const StopToken& stop) const {
    RepairOutcome outcome;
    outcome.state = plan_.states[item];
    if (!plan_.isRepairable(item)) {
      return outcome;
    }
    if (!folderProblem_.empty()) {
      outcome.state = FileState::Failed{folderProblem_};
      return outcome;
    }
    try {
      (void)firstThatServes(plan_.tries(item), [&](const std::optional<fs::path>& reference) {
        save(item, reference, outcome, progress, stop);
      });
    } catch (const Stopped&) {
      throw;
    } catch (const std::exception& error) {
      outcome.state = FileState::Failed{explain(error, outcome.reference.has_value())};
    }
    return outcome;
  }

 private:
  void save(std::size_t item, const std::optional<fs::path>& reference, RepairOutcome& outcome,
            const Progress& progress, const StopToken& stop) const {
    outcome.reference = reference;
    const Item& damaged = plan_.items[item];
    const DamagedFile file{damaged.path, *damaged.kind, reference, nullptr, depth_};
    SavedCopy saved =
        saveRepairedCopy(file, folder_, images_, progress, stop, openFile, decodePictures);
    outcome.output = std::move(saved.path);
    outcome.facts = std::move(saved.facts);
  }

  const RepairPlan& plan_;
  LibraryImageService images_;
  fs::path folder_;
  std::string folderProblem_;
  VideoRepair::Depth depth_;
};

std::vector<std::uint64_t> bytesToRepair(const RepairPlan& plan) {
  std::vector<std::uint64_t> sizes;
  for (std::size_t i = 0; i < plan.items.size(); ++i) {
    sizes.push_back(plan.isRepairable(i) ? plan.items[i].size : 0);
  }
  return sizes;
}

bool isWell(const RepairOutcome& outcome) {
  return outcome.output || std::holds_alternative<FileState::Healthy>(outcome.state);
}

}  // namespace

int runRepair(const RepairRequest& request) {
  const StopToken stop = Interruption::token();
  std::vector<Item> items = itemsFrom(request.paths);
  if (items.empty()) {
    std::cerr << "No clips or photos were found.\n";
  }
  std::vector<FileState::Any> states = checkAll(items, stop);
  const RepairPlan plan = planRepair(std::move(items), std::move(states), request.reference);
  const Repairer repairer(plan, request);
  std::vector<std::optional<RepairOutcome>> outcomes(plan.items.size());
  ProgressBar bar(bytesToRepair(plan));
  int status = ExitStatus::allWell;

  const auto work = [&](std::size_t i) {
    try {
      stop.check();
      outcomes[i] = repairer.repair(
          i, [&](double done) { bar.update(i, done); }, stop);
    } catch (const Stopped&) {
      // The item has no outcome.
    }
  };
  const auto report = [&](std::size_t i) {
    const auto& outcome = outcomes[i];
    status = outcome && isWell(*outcome) ? status : ExitStatus::someNotWell;
    if (outcome) {
      bar.print(request.json ? lineOf(repairJson(plan.items[i], *outcome))
                             : repairSentence(plan.items[i], *outcome));
    }
  };
  workInOrder(plan.chains(), work, report);
  return status;
}

}  // namespace tallowmark
