// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/PendingFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "DeviceKit/DeviceError.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::contentsOf;
using testing::namesIn;
using testing::TemporaryFolder;
using testing::writeFile;

std::string numbered(unsigned attempt) {
  return attempt == 1 ? "clip.mp4" : "clip " + std::to_string(attempt) + ".mp4";
}

TEST(PendingFiles, appearUnderTheirNameOnlyWhenPublishedAndWithTheirDate) {
  const TemporaryFolder folder;
  {
    PendingFile pending(folder.path());
    pending.sink().append(Bytes{1, 2, 3});
    ASSERT_EQ(namesIn(folder.path()).size(), 1U);
    EXPECT_EQ(namesIn(folder.path()).front().front(), '.');
    EXPECT_EQ(pending.publish(numbered, timespec{1'000'000'000, 5}), folder / "clip.mp4");
  }
  EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{"clip.mp4"});
  EXPECT_EQ(contentsOf(folder / "clip.mp4"), (Bytes{1, 2, 3}));
  struct stat status {};
  ASSERT_EQ(::stat((folder / "clip.mp4").c_str(), &status), 0);
  EXPECT_EQ(status.st_mtime, 1'000'000'000);
}

TEST(PendingFiles, leaveNothingWhenTheyAreGivenUp) {
  const TemporaryFolder folder;
  {
    PendingFile pending(folder.path());
    pending.sink().append(Bytes(100'000));
  }
  EXPECT_TRUE(namesIn(folder.path()).empty());
}

TEST(PendingFiles, takeTheNextNameWhereOneIsTakenByAnything) {
  const TemporaryFolder folder;
  writeFile(folder / "clip.mp4", Bytes{9});
  std::filesystem::create_symlink("nowhere", folder / "clip 2.mp4");
  std::filesystem::create_directory(folder / "clip 3.mp4");
  PendingFile pending(folder.path());
  EXPECT_EQ(pending.publish(numbered, std::nullopt), folder / "clip 4.mp4");
  EXPECT_EQ(contentsOf(folder / "clip.mp4"), Bytes{9});
}

TEST(PendingFiles, racingForOneNameAllSurviveUnderTheirOwn) {
  const TemporaryFolder folder;
  constexpr std::uint8_t racers = 16;
  std::vector<std::thread> threads;
  std::vector<std::filesystem::path> paths(racers);
  for (std::uint8_t i = 0; i < racers; ++i) {
    threads.emplace_back([&, i] {
      PendingFile pending(folder.path());
      pending.sink().append(Bytes(1000, i));
      paths[i] = pending.publish(numbered, std::nullopt);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(namesIn(folder.path()).size(), racers);
  for (std::uint8_t i = 0; i < racers; ++i) EXPECT_EQ(contentsOf(paths[i]), Bytes(1000, i));
}

TEST(PendingFiles, nameTheFolderThatCannotBeWrittenTo) {
  const TemporaryFolder folder;
  try {
    PendingFile pending(folder / "missing");
    ADD_FAILURE();
  } catch (const DeviceError& error) {
    EXPECT_EQ(error.path(), (folder / "missing").string());
  }
}

TEST(AbandonedFiles, goWhenTheirProgramIsGoneAndNoOthers) {
  const TemporaryFolder folder;
  const pid_t child = ::fork();
  if (child == 0) {
    const PendingFile pending(folder.path());
    ::_exit(0);  // as a crash: nothing is cleaned up
  }
  ::waitpid(child, nullptr, 0);
  // A program on another machine may be writing into the same shared folder.
  std::string foreign = namesIn(folder.path()).at(0);
  char& letter = foreign[std::string(".tallowmark-").size()];
  letter = letter == '0' ? '1' : '0';
  writeFile(folder / foreign, Bytes{1});
  writeFile(folder / ".tallowmark-notes.part", Bytes{1});
  const PendingFile running(folder.path());
  ASSERT_EQ(namesIn(folder.path()).size(), 4U);
  removeAbandonedFiles(folder.path());
  EXPECT_EQ(namesIn(folder.path()).size(), 3U);
  EXPECT_TRUE(std::filesystem::exists(running.temporaryPath()));
}

}  // namespace
}  // namespace tallowmark
