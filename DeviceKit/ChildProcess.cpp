// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>

#include "DeviceKit/ChildInheritance.h"
#include "DeviceKit/Descriptor.h"
#include "DeviceKit/DeviceError.h"

extern "C" char** environ;  // NOLINT(readability-redundant-declaration): not every system has it

namespace tallowmark {

namespace {

bool isProgram(const std::string& path) {
  std::error_code error;
  return std::filesystem::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

// A name is not looked up in the folder that one happens to stand in: it may be a card's. Empty
// when there is no such program.
std::string findProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) {
    return isProgram(name) ? name : std::string();
  }
  const char* path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "/usr/bin:/bin" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (!folder.starts_with('/')) continue;
    std::string program = folder;
    program.append("/").append(name);
    if (isProgram(program)) {
      return program;
    }
  }
  return {};
}

struct NewProgram {
  const char* path;
  char* const* words;
  int output;
  const Confinement* confinement;
  pid_t parent;
};

// Never more than this program has.
void limit(int resource, std::uint64_t most) {
  rlimit limits{};
  if (::getrlimit(resource, &limits) == 0) {
    limits.rlim_max = std::min<rlim_t>(limits.rlim_max, most);
    limits.rlim_cur = limits.rlim_max;
    (void)::setrlimit(resource, &limits);
  }
}

void confine(const Confinement& confinement) {
  constexpr int nicer = 10;
  (void)::setpgid(0, 0);
  (void)::nice(nicer);
  limit(RLIMIT_CORE, 0);
  limit(RLIMIT_FSIZE, confinement.fileSize);
  // Address space that is only set aside, as allocators do, does not count here as in RLIMIT_AS.
  limit(RLIMIT_DATA, confinement.memory);
}

void connectStreams(int output) {
  // Above the streams, which it may be one of.
  const int kept = output == ChildProcess::noOutput ? -1 : ::fcntl(output, F_DUPFD, 3);
  const int nothing = ::open("/dev/null", O_RDWR);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(nothing, STDERR_FILENO);
  ::dup2(kept < 0 ? nothing : kept, STDOUT_FILENO);
}

// The child's part between fork and exec.
[[noreturn]] void become(const NewProgram& program) {
  ChildInheritance::endWithParent(program.parent);
  // Signals that this program ignores must end its children all the same.
  (void)::signal(SIGPIPE, SIG_DFL);
  (void)::signal(SIGXFSZ, SIG_DFL);
  connectStreams(program.output);
  ChildInheritance::keepStandardStreamsOnly();
  // Last: this program may have taken more already.
  if (program.confinement != nullptr) {
    confine(*program.confinement);
  }
  ::execve(program.path, program.words, environ);
  ::_exit(127);
}

// Reads until the other end is closed; nothing past the limits.
std::optional<std::string> readAll(int fd, Deadline deadline, std::size_t most,
                                   const StopToken& stop) {
  constexpr int lookAtStopEvery = 20;
  std::string text;
  std::array<char, 65536> piece{};
  for (;;) {
    stop.check();
    const int left = millisecondsUntil(deadline);
    pollfd ready{fd, POLLIN, 0};
    const int count = ::poll(&ready, 1, std::min(left, lookAtStopEvery));
    if ((count < 0 && errno == EINTR) || (count == 0 && left > 0)) {
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

ToolRun waitFor(ChildProcess& tool, int output, const ToolLimits& limits, Deadline deadline,
                const StopToken& stop) {
  using End = ToolRun::End;
  auto text = readAll(output, deadline, limits.output, stop);
  if (!text) {
    return {End::cutOff, {}};
  }
  if (tool.endsWell(deadline, stop)) {
    return {End::well, std::move(*text)};
  }
  return std::chrono::steady_clock::now() < deadline ? ToolRun{End::badly, std::move(*text)}
                                                     : ToolRun{End::cutOff, {}};
}

}  // namespace

int millisecondsUntil(Deadline deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  constexpr long long most = 1 << 30U;
  return static_cast<int>(std::clamp<long long>(left.count(), 0, most));
}

ChildProcess::ChildProcess(std::vector<std::string> command, int output,
                           const std::optional<Confinement>& confinement)
    : confined_(confinement.has_value()) {
  const std::string program = findProgram(command.front());
  if (program.empty()) {
    throw DeviceError::cannotOpen(command.front(), ENOENT);
  }
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  const NewProgram next{program.c_str(), words.data(), output,
                        confinement ? &*confinement : nullptr, ::getpid()};
  child_ = ::fork();
  if (child_ == 0) {
    become(next);
  }
  if (child_ < 0) {
    throw DeviceError::cannotOpen(command.front(), errno);
  }
  if (confined_) {
    // Whichever of the two comes first: the group is there when it has to be ended.
    (void)::setpgid(child_, child_);
  }
}

ChildProcess::~ChildProcess() {
  if (child_ > 0) {
    (void)end();
  }
}

// What it started ends before it is waited for: until then nobody else has its number.
int ChildProcess::end() {
  (void)::kill(confined_ ? -child_ : child_, SIGKILL);
  int status = 0;
  while (::waitpid(child_, &status, 0) < 0 && errno == EINTR) {
  }
  child_ = -1;
  return status;
}

bool ChildProcess::endsWell(Deadline deadline, const StopToken& stop) {
  auto pause = std::chrono::milliseconds(1);
  for (;;) {
    stop.check();
    siginfo_t ended{};
    const int looked =
        ::waitid(P_PID, static_cast<id_t>(child_), &ended, WEXITED | WNOHANG | WNOWAIT);
    if (looked == 0 && ended.si_pid == child_) {
      const int status = end();
      return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    if ((looked < 0 && errno != EINTR) || std::chrono::steady_clock::now() >= deadline) {
      return false;
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::milliseconds(20));
  }
}

ToolRun runTool(const std::vector<std::string>& command, const ToolLimits& limits,
                const StopToken& stop) {
  const Deadline deadline = std::chrono::steady_clock::now() + limits.patience;
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) {
    return {};
  }
  const Descriptor from(ends[0]);
  Descriptor into(ends[1]);
  for (const int end : ends) (void)::fcntl(end, F_SETFD, FD_CLOEXEC);
  try {
    ChildProcess tool(command, into.get(), limits.confinement);
    into.reset();
    return waitFor(tool, from.get(), limits, deadline, stop);
  } catch (const DeviceError&) {
    return {};
  }
}

std::optional<std::string> outputOf(const std::vector<std::string>& command,
                                    const ToolLimits& limits) {
  ToolRun run = runTool(command, limits);
  return run.end == ToolRun::End::well ? std::optional(std::move(run.output)) : std::nullopt;
}

}  // namespace tallowmark
