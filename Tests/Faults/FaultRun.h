// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "Tests/Support/Process.h"

namespace tallowmark::testing {

/// One call of the program that is to go wrong, as FaultShim.cpp understands it.
struct Fault {
  std::string call;
  long at = 1;
  std::string error;
  /// The later calls of that name fail, too: a full disk, a card that was pulled.
  bool lasts = false;
};

/// How often the program makes each call.
using CallCounts = std::map<std::string, long>;

/// Something people do with the program: files of theirs, and the command on them.
struct Scenario {
  std::string label;
  /// Puts the sources into the folder.
  std::function<void(const std::filesystem::path& sources)> prepare;
  /// The command line, without the program's name; results go into `results`.
  std::function<std::vector<std::string>(const std::filesystem::path& sources,
                                         const std::filesystem::path& results)>
      arguments;

  // How GoogleTest calls it.
  friend void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.label; }
};

/// Runs a scenario again and again, each time with another fault, and compares what became of the
/// files with a run without one.
class FaultRuns {
 public:
  /// Runs it once without a fault. Throws std::runtime_error when that fails.
  explicit FaultRuns(const Scenario& scenario);

  const CallCounts& counts() const { return counts_; }

  /// What is wrong after a run with that fault; empty when the files are as they must be and the
  /// user was told.
  std::string complaint(const Fault& fault) const;

 private:
  ProcessResult runWith(const Fault* fault, const std::filesystem::path& results,
                        const std::filesystem::path& counts = {}) const;
  std::string complaintAboutFiles(const std::filesystem::path& results, bool mayLeaveHidden) const;
  std::string complaintAboutNextRun(const std::filesystem::path& results) const;

  const Scenario& scenario_;
  TemporaryFolder folder_;
  std::vector<Fingerprint> sources_;
  std::map<std::string, Bytes> expected_;
  CallCounts counts_;
};

}  // namespace tallowmark::testing
