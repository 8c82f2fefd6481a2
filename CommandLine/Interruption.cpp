// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/Interruption.h"

#include <array>
#include <atomic>
#include <csignal>

namespace tallowmark::Interruption {

namespace {

StopSource& stopSource() {
  static StopSource source;
  return source;
}

std::atomic<int> received{0};
static_assert(std::atomic<int>::is_always_lock_free);

// The source was made by listen(), so that nothing is built in here.
extern "C" void takeSignal(int number) {
  received.store(number, std::memory_order_relaxed);
  stopSource().requestStop();
}

}  // namespace

void listen() {
  (void)stopSource();
  struct sigaction action {};
  action.sa_handler = takeSignal;
  action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  for (const int number : std::array{SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction inherited {};
    // nohup and background jobs of scripts ignore some of these on purpose.
    if (::sigaction(number, nullptr, &inherited) == 0 && inherited.sa_handler != SIG_IGN) {
      ::sigaction(number, &action, nullptr);
    }
  }
  action.sa_handler = SIG_IGN;
  action.sa_flags = 0;
  for (const int number : std::array{SIGPIPE, SIGXFSZ}) {
    ::sigaction(number, &action, nullptr);
  }
}

StopToken token() {
  return stopSource().token();
}

int signal() {
  return received.load(std::memory_order_relaxed);
}

}  // namespace tallowmark::Interruption
