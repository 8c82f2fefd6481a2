// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/ChildProcess.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>

#include "DeviceKit/Descriptor.h"
#include "Tests/Support/Lifeline.h"

namespace tallowmark::testing {
namespace {

using End = ToolRun::End;
using std::chrono::milliseconds;
constexpr std::uint64_t mebibyte = 1 << 20U;

/// What a stranger's file may make a decoder do, played by shells.
class ConfinedTools : public ::testing::Test {
 protected:
  ToolRun runScript(const std::string& script, milliseconds patience, std::uint64_t memory) const {
    return runTool(command(script), {patience, 1000, Confinement{memory, mebibyte}});
  }
  std::vector<std::string> command(const std::string& script) const {
    return {"sh", "-c",
            "exec 9>'" + lifeline.path() + "'; cd '" + folder.path().string() + "'; " + script};
  }

  TemporaryFolder folder;
  Lifeline lifeline;
};

TEST_F(ConfinedTools, areEndedWithAllThatTheyStarted) {
  const struct {
    const char* what;
    const char* script;
    End end;
    int patience = 20'000;
    std::uint64_t memory = 64 * mebibyte;
  } rows[] = {
      {"nothing wrong", "printf fine", End::well},
      {"many complaints", "head -c 50000000 /dev/zero >&2", End::well},
      {"a hang", "exec sleep 600", End::cutOff, 300},
      {"a grandchild that holds the output", "sleep 600 & printf fine", End::cutOff, 300},
      {"a grandchild that hangs", "sleep 600 >/dev/null & printf fine", End::well},
      {"a flood of output", "exec yes", End::cutOff},
      {"a flood of output behind a hang", "yes & exec sleep 600", End::cutOff},
      {"a flood of a file", "head -c 3000000 /dev/zero >flood", End::badly},
#ifdef __linux__
      {"memory within bounds", "head -c 99000000 /dev/zero | tail -n 1 >/dev/null", End::well,
       20'000, 512 * mebibyte},
      {"memory without bounds", "head -c 99000000 /dev/zero | tail -n 1 >/dev/null", End::badly},
#endif
      {"a crash", "kill -SEGV $$", End::badly},
  };
  for (const auto& row : rows) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(runScript(row.script, milliseconds(row.patience), row.memory).end, row.end)
        << row.what;
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(10'000)) << row.what;
    EXPECT_TRUE(lifeline.willBeHeld(false)) << row.what;
  }
  EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{"flood"});
  EXPECT_LE(std::filesystem::file_size(folder / "flood"), mebibyte);
  EXPECT_EQ(runTool({"/no/such/tool"}).end, End::notStarted);
}

TEST_F(ConfinedTools, haveLowPriorityAndNoFileOfOurs) {
  const Descriptor open(::fcntl(STDERR_FILENO, F_DUPFD, 77));
  EXPECT_EQ(runScript("[ $(nice) -ge 10 ] && printf low; [ ! -e /dev/fd/" +
                          std::to_string(open.get()) + " ] && printf closed",
                      milliseconds(20'000), 512 * mebibyte)
                .output,
            "lowclosed");
}

TEST_F(ConfinedTools, areNotTakenFromTheFolderOneStandsIn) {
  const std::string text = "#!/bin/sh\nprintf trap\n";
  const auto trap = writeFile(folder / "tallowmark-trap", Bytes(text.begin(), text.end()));
  std::filesystem::permissions(trap, std::filesystem::perms::owner_all);
  const std::string before = std::getenv("PATH");
  const auto standing = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  for (const char* path : {":/usr/bin", ".:/usr/bin"}) {
    ::setenv("PATH", path, 1);
    EXPECT_EQ(runTool({"tallowmark-trap"}).end, End::notStarted) << path;
  }
  ::setenv("PATH", folder.path().c_str(), 1);
  EXPECT_EQ(runTool({"tallowmark-trap"}).output, "trap");
  ::setenv("PATH", before.c_str(), 1);
  std::filesystem::current_path(standing);
}

TEST_F(ConfinedTools, endSoonAfterAStop) {
  StopSource stop;
  std::thread user([&] {
    EXPECT_TRUE(lifeline.willBeHeld(true));
    stop.requestStop();
  });
  const ToolLimits patient{milliseconds(600'000), 1000, Confinement{512 * mebibyte, 0}};
  EXPECT_THROW(runTool(command("sleep 600 & exec sleep 600"), patient, stop.token()), Stopped);
  user.join();
  EXPECT_TRUE(lifeline.willBeHeld(false));
}

TEST_F(ConfinedTools, endWhenTheirParentIsKilled) {
#ifndef __linux__
  GTEST_SKIP() << "this system does not end them";
#endif
  const pid_t parent = ::fork();
  if (parent == 0) {
    const ChildProcess child(command("exec sleep 600"), ChildProcess::noOutput);
    for (;;) ::pause();
  }
  EXPECT_TRUE(lifeline.willBeHeld(true));
  ::kill(parent, SIGKILL);
  ::waitpid(parent, nullptr, 0);
  EXPECT_TRUE(lifeline.willBeHeld(false));
}

}  // namespace
}  // namespace tallowmark::testing
