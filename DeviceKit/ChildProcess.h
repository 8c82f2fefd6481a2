// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace tallowmark {

/// The moment at which waiting ends.
using Deadline = std::chrono::steady_clock::time_point;

/// Milliseconds until then, as poll(2) takes them: rounded up, 0 when it has passed.
int millisecondsUntil(Deadline deadline);

/// A program run as a child, with nothing to read and its complaints unheard. Ends with this object
/// at the latest.
class ChildProcess {
 public:
  /// Starts `command`, its first word looked up in PATH unless it has a "/", with standard output
  /// going to the descriptor `output`. Throws DeviceError::cannotOpen naming the program.
  ChildProcess(std::vector<std::string> command, int output);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ChildProcess(ChildProcess&&) = delete;
  ChildProcess& operator=(ChildProcess&&) = delete;

  /// Whether it ended by itself before then, and well.
  bool endsWell(Deadline deadline);

 private:
  pid_t child_ = -1;
};

/// How long a tool may take and how much it may say.
struct ToolLimits {
  std::chrono::milliseconds patience{30'000};
  std::size_t output = std::size_t{16} << 20U;
};

/// What a tool that ends well prints on standard output; nothing when it cannot be started, ends
/// badly or goes past the limits.
std::optional<std::string> outputOf(const std::vector<std::string>& command,
                                    const ToolLimits& limits = {});

}  // namespace tallowmark
