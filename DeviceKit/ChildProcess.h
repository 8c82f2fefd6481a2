// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// The moment at which waiting ends.
using Deadline = std::chrono::steady_clock::time_point;

/// Milliseconds until then, as poll(2) takes them: rounded up, 0 when it has passed.
int millisecondsUntil(Deadline deadline);

/// What holds a child that is handed what a stranger wrote. Besides, it has low priority, leaves no
/// core file, and what it starts ends with it.
struct Confinement {
  /// Bytes of memory that it may write to, its own and its threads' stacks. Held by Linux; the Mac
  /// has no such limit.
  std::uint64_t memory = 0;
  /// Bytes of any file that it writes. 0: it writes none.
  std::uint64_t fileSize = 0;
};

/// A program run as a child, with nothing to read and its complaints unheard, no files of this
/// one's open. Ends with this object at the latest; on Linux also when this program is killed.
class ChildProcess {
 public:
  /// In place of a descriptor: what the child prints goes nowhere.
  static constexpr int noOutput = -1;

  /// Starts `command`, its first word looked up in PATH unless it has a "/", with standard output
  /// going to the descriptor `output`. Must live on the thread that made it: the child ends with
  /// that. Throws DeviceError::cannotOpen naming the program.
  ChildProcess(std::vector<std::string> command, int output,
               const std::optional<Confinement>& confinement = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ChildProcess(ChildProcess&&) = delete;
  ChildProcess& operator=(ChildProcess&&) = delete;

  /// Whether it ended by itself before then, and well. Throws Stopped.
  bool endsWell(Deadline deadline, const StopToken& stop = {});

 private:
  int end();

  pid_t child_ = -1;
  bool confined_ = false;
};

/// How long a tool may take, how much it may say and what else it may do.
struct ToolLimits {
  std::chrono::milliseconds patience{30'000};
  std::size_t output = std::size_t{16} << 20U;
  std::optional<Confinement> confinement;
};

/// What became of a tool.
struct ToolRun {
  enum class End {
    well,
    /// It says that it failed, or a signal ended it.
    badly,
    /// It took too long or said too much.
    cutOff,
    notStarted,
  };

  End end = End::notStarted;
  /// What it printed on standard output; empty when it was cut off.
  std::string output;
};

/// Runs a tool and waits for its end. Throws Stopped.
ToolRun runTool(const std::vector<std::string>& command, const ToolLimits& limits = {},
                const StopToken& stop = {});

/// What a tool that ends well prints on standard output; nothing when it cannot be started, ends
/// badly or goes past the limits.
std::optional<std::string> outputOf(const std::vector<std::string>& command,
                                    const ToolLimits& limits = {});

}  // namespace tallowmark
