// SPDX-License-Identifier: GPL-3.0-or-later
#include <exception>
#include <iostream>

#include "CommandLine/Commands.h"
#include "CommandLine/Interruption.h"

namespace {

struct Runner {
  int operator()(const tallowmark::CheckRequest& request) const { return runCheck(request); }
  int operator()(const tallowmark::RepairRequest& request) const { return runRepair(request); }
  int operator()(const tallowmark::JoinRequest& request) const { return runJoin(request); }
  int operator()(const tallowmark::InspectRequest& request) const { return runInspect(request); }
  int operator()(const tallowmark::DisksRequest& request) const { return runDisks(request); }
  int operator()(const tallowmark::ImageRequest& request) const { return runImage(request); }
  int operator()(const tallowmark::Finished& finished) const { return finished.exitStatus; }
};

}  // namespace

int main(int count, char** arguments) {
  using namespace tallowmark;
  Interruption::listen();
  try {
    const int status = std::visit(Runner{}, parseArguments(count, arguments));
    const int signal = Interruption::signal();
    return signal == 0 ? status : ExitStatus::signalled + signal;
  } catch (const std::exception& error) {
    std::cerr << "tallowmark: " << error.what() << '\n';
    return ExitStatus::someNotWell;
  }
}
