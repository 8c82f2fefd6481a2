// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "Tests/Support/Files.h"

namespace tallowmark::testing {

/// Tells of a child that is nobody's any more whether it lives: it holds a pipe with a name,
/// `exec 9>'<path>'` in a shell, and so does all that it starts.
class Lifeline {
 public:
  Lifeline() {
    ::mkfifo(path().c_str(), 0600);
    fd_ = ::open(path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }
  ~Lifeline() { ::close(fd_); }
  Lifeline(const Lifeline&) = delete;
  Lifeline& operator=(const Lifeline&) = delete;
  Lifeline(Lifeline&&) = delete;
  Lifeline& operator=(Lifeline&&) = delete;

  std::string path() const { return (folder_ / "held").string(); }

  bool isHeld() const {
    char nothing = 0;
    return ::read(fd_, &nothing, 1) < 0;
  }
  /// Whether that comes true soon.
  bool willBeHeld(bool held) const {
    for (int i = 0; i < 2'000 && isHeld() != held; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return isHeld() == held;
  }

 private:
  TemporaryFolder folder_;
  int fd_ = -1;
};

}  // namespace tallowmark::testing
