// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "Tests/Support/Files.h"

namespace tallowmark::testing {

struct ProcessResult {
  /// As a shell tells it: 128 + the number of the signal that ended it; 127 when it did not start.
  int exitCode = -1;
  std::string output;
  std::string errors;
};

/// A child process whose standard output and error are collected. The first argument is the
/// program, looked up in PATH.
class Process {
 public:
  /// `largestFile` limits how much the child can write into one file, as a full disk would; 0 for
  /// no limit.
  explicit Process(std::vector<std::string> arguments, std::uint64_t largestFile = 0);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;
  Process(Process&&) = delete;
  Process& operator=(Process&&) = delete;

  void signal(int number) const;
  ProcessResult wait();

 private:
  TemporaryFolder folder_;
  pid_t child_ = -1;
};

ProcessResult run(std::vector<std::string> arguments);

}  // namespace tallowmark::testing
