// SPDX-License-Identifier: GPL-3.0-or-later
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <string_view>

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

// Libraries end the program where they cannot throw, out of memory as they clean up; what is half
// written then goes with the next run.
[[noreturn]] void giveUp() {
  constexpr std::string_view words =
      "tallowmark: Had to give up, most likely for lack of memory. Your originals are as they "
      "were.\n";
  (void)!::write(STDERR_FILENO, words.data(), words.size());
  std::_Exit(tallowmark::ExitStatus::someNotWell);
}

}  // namespace

int main(int count, char** arguments) {
  using namespace tallowmark;
  std::set_terminate(giveUp);
  try {
    Interruption::listen();
    const int status = std::visit(Runner{}, parseArguments(count, arguments));
    const int signal = Interruption::signal();
    return signal == 0 ? status : ExitStatus::signalled + signal;
  } catch (const std::bad_alloc&) {
    std::cerr << "tallowmark: There is not enough memory to go on.\n";
    return ExitStatus::someNotWell;
  } catch (const std::exception& error) {
    std::cerr << "tallowmark: " << error.what() << '\n';
    return ExitStatus::someNotWell;
  }
}
