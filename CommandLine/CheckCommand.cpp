// SPDX-License-Identifier: GPL-3.0-or-later
#include <iostream>

#include "CommandLine/Commands.h"
#include "CommandLine/Interruption.h"
#include "CommandLine/Items.h"
#include "CommandLine/JsonText.h"
#include "CommandLine/OrderedWork.h"
#include "CommandLine/ProgressBar.h"
#include "CommandLine/Sentences.h"

namespace tallowmark {

namespace {

bool isWell(const FileState::Any& state) {
  return std::holds_alternative<FileState::Healthy>(state) ||
         std::holds_alternative<FileState::RawFile>(state);
}

}  // namespace

int runCheck(const CheckRequest& request) {
  const std::vector<Item> items = itemsFrom(request.paths);
  if (items.empty()) {
    std::cerr << "No clips or photos were found.\n";
  }
  std::vector<FileState::Any> states(items.size());
  ProgressBar bar(std::vector<std::uint64_t>(items.size(), 1));
  const StopToken stop = Interruption::token();
  int status = ExitStatus::allWell;
  const auto check = [&](std::size_t i) {
    if (!stop.stopRequested()) {
      states[i] = checkItem(items[i]);
    }
    bar.update(i, 1);
  };
  const auto report = [&](std::size_t i) {
    if (stop.stopRequested()) {
      return;
    }
    bar.print(request.json ? lineOf(checkJson(items[i], states[i]))
                           : checkSentence(items[i], states[i]));
    status = isWell(states[i]) ? status : ExitStatus::someNotWell;
  };
  workInOrder(independent(items.size()), check, report);
  return status;
}

}  // namespace tallowmark
