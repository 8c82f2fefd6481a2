// SPDX-License-Identifier: GPL-3.0-or-later
#include "Tests/Support/Process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <utility>

namespace tallowmark::testing {

namespace {

std::string textOf(const std::filesystem::path& path) {
  const Bytes bytes = contentsOf(path);
  return {bytes.begin(), bytes.end()};
}

// Between fork and exec only calls that are safe there.
[[noreturn]] void becomeProgram(char* const* arguments, int output, int errors,
                                std::uint64_t largestFile) {
  const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  if (largestFile > 0) {
    const rlimit limit{largestFile, largestFile};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ::execvp(arguments[0], arguments);
  ::_exit(127);
}

}  // namespace

Process::Process(std::vector<std::string> arguments, std::uint64_t largestFile) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  const auto create = [&](const char* name) {
    return ::open((folder_ / name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  };
  const int output = create("output");
  const int errors = create("errors");
  child_ = ::fork();
  if (child_ == 0) becomeProgram(pointers.data(), output, errors, largestFile);
  ::close(output);
  ::close(errors);
}

Process::~Process() {
  if (child_ > 0) {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
}

void Process::signal(int number) const {
  ::kill(child_, number);
}

ProcessResult Process::wait() {
  int status = 0;
  while (::waitpid(child_, &status, 0) < 0 && errno == EINTR) {
  }
  child_ = -1;
  return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status),
          textOf(folder_ / "output"), textOf(folder_ / "errors")};
}

ProcessResult run(std::vector<std::string> arguments) {
  return Process(std::move(arguments)).wait();
}

}  // namespace tallowmark::testing
