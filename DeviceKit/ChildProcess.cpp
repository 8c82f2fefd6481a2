// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <thread>

#include "DeviceKit/Descriptor.h"
#include "DeviceKit/DeviceError.h"

extern "C" char** environ;  // NOLINT(readability-redundant-declaration): not every system has it

namespace tallowmark {

namespace {

class SpawnActions {
 public:
  explicit SpawnActions(int output) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  SpawnActions(const SpawnActions&) = delete;
  SpawnActions& operator=(const SpawnActions&) = delete;
  SpawnActions(SpawnActions&&) = delete;
  SpawnActions& operator=(SpawnActions&&) = delete;

  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_{};
};

// Signals that this program ignores must end its children all the same.
class SpawnAttributes {
 public:
  SpawnAttributes() {
    ::posix_spawnattr_init(&attributes_);
    sigset_t ordinary{};  // filled by macros on the Mac, which take no "::"
    (void)sigemptyset(&ordinary);
    (void)sigaddset(&ordinary, SIGPIPE);
    (void)sigaddset(&ordinary, SIGXFSZ);
    ::posix_spawnattr_setsigdefault(&attributes_, &ordinary);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF);
  }
  ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }
  SpawnAttributes(const SpawnAttributes&) = delete;
  SpawnAttributes& operator=(const SpawnAttributes&) = delete;
  SpawnAttributes(SpawnAttributes&&) = delete;
  SpawnAttributes& operator=(SpawnAttributes&&) = delete;

  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

// Reads until the other end is closed; nothing past the limits.
std::optional<std::string> readAll(int fd, Deadline deadline, std::size_t most) {
  std::string text;
  std::array<char, 65536> piece{};
  for (;;) {
    pollfd ready{fd, POLLIN, 0};
    const int count = ::poll(&ready, 1, millisecondsUntil(deadline));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    const ssize_t got = count > 0 ? ::read(fd, piece.data(), piece.size()) : -1;
    if (got == 0) {
      return text;
    }
    if (got < 0 || text.size() + static_cast<std::size_t>(got) > most) {
      return std::nullopt;
    }
    text.append(piece.data(), static_cast<std::size_t>(got));
  }
}

}  // namespace

int millisecondsUntil(Deadline deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  constexpr long long most = 1 << 30U;
  return static_cast<int>(std::clamp<long long>(left.count(), 0, most));
}

ChildProcess::ChildProcess(std::vector<std::string> command, int output) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  const SpawnActions actions(output);
  const SpawnAttributes attributes;
  const int error = ::posix_spawnp(&child_, words.front(), actions.get(), attributes.get(),
                                   words.data(), environ);
  if (error != 0) {
    child_ = -1;
    throw DeviceError::cannotOpen(command.front(), error);
  }
}

ChildProcess::~ChildProcess() {
  if (child_ > 0) {
    ::kill(child_, SIGKILL);
    while (::waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
}

bool ChildProcess::endsWell(Deadline deadline) {
  auto pause = std::chrono::milliseconds(1);
  for (;;) {
    int status = 0;
    const pid_t ended = ::waitpid(child_, &status, WNOHANG);
    if (ended == child_) {
      child_ = -1;
      return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    if ((ended < 0 && errno != EINTR) || std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::milliseconds(20));
  }
}

std::optional<std::string> outputOf(const std::vector<std::string>& command,
                                    const ToolLimits& limits) {
  const Deadline deadline = std::chrono::steady_clock::now() + limits.patience;
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) {
    return std::nullopt;
  }
  const Descriptor from(ends[0]);
  Descriptor into(ends[1]);
  for (const int end : ends) (void)::fcntl(end, F_SETFD, FD_CLOEXEC);
  try {
    ChildProcess tool(command, into.get());
    into.reset();
    auto text = readAll(from.get(), deadline, limits.output);
    return text && tool.endsWell(deadline) ? std::move(text) : std::nullopt;
  } catch (const DeviceError&) {
    return std::nullopt;
  }
}

}  // namespace tallowmark
