// SPDX-License-Identifier: GPL-3.0-or-later
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "DeviceKit/ChildProcess.h"
#include "DeviceKit/Descriptor.h"
#include "DeviceKit/DeviceError.h"
#include "DeviceKit/RawDeviceAccess.h"
#include "Tests/Support/Files.h"

namespace tallowmark {
namespace {

using std::chrono::milliseconds;

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/dev/fd"), {});
}

TEST(AuthorizationTools, passTheDescriptorTheyOpened) {
  const auto before = openDescriptors();
  for (const char* path : {"/dev/disk4", "/dev/two"}) {
    const Descriptor device(
        RawDeviceAccess::openThrough({STAND_IN_AUTHOPEN, milliseconds(20'000)}, path));
    struct stat passed {};
    struct stat opened {};
    ASSERT_EQ(::fstat(device.get(), &passed), 0) << path;
    ASSERT_EQ(::stat(STAND_IN_AUTHOPEN, &opened), 0);
    EXPECT_EQ(passed.st_ino, opened.st_ino);
    EXPECT_EQ(::fcntl(device.get(), F_GETFL) & O_ACCMODE, O_RDONLY);
    EXPECT_NE(::fcntl(device.get(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_EQ(openDescriptors(), before + 1);
  }
}

TEST(AuthorizationTools, thatPassNothingMeanARefusal) {
  const auto before = openDescriptors();
  for (const char* path : {"/dev/refuse", "/dev/die", "/dev/rubbish", "/dev/hang", "/dev/none"}) {
    const bool isThere = std::string(path) != "/dev/none";
    const auto start = std::chrono::steady_clock::now();
    try {
      RawDeviceAccess::openThrough({isThere ? STAND_IN_AUTHOPEN : "/no/tool", milliseconds(1000)},
                                   path);
      ADD_FAILURE() << path;
    } catch (const DeviceError& error) {
      EXPECT_EQ(error.kind(),
                isThere ? DeviceError::Kind::authorizationDenied : DeviceError::Kind::cannotOpen);
      EXPECT_EQ(error.path(), path);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, milliseconds(10'000)) << path;
    EXPECT_EQ(openDescriptors(), before) << path;
  }
}

TEST(Tools, giveTheirOutputOnlyWhenTheyEndWellWithinTheirLimits) {
  const ToolLimits tight{milliseconds(300), 1000};
  const ToolLimits wide{milliseconds(20'000), 1 << 20};
  const struct {
    const char* script;
    ToolLimits limits;
    std::optional<std::string> output;
  } rows[] = {{"printf good", wide, "good"},
              {"printf good; exit 3", wide, {}},
              {"kill -9 $$", wide, {}},
              {"cat; echo heard >&2; printf nothing", wide, "nothing"},
              {"exec sleep 600", tight, {}},
              {"exec yes", tight, {}},
              {"exec yes", {milliseconds(20'000), 1000}, {}},
              {"exec >&-; exec sleep 600", tight, {}}};
  for (const auto& row : rows) {
    EXPECT_EQ(outputOf({"sh", "-c", row.script}, row.limits), row.output) << row.script;
  }
  EXPECT_EQ(outputOf({"/no/such/tool"}), std::nullopt);
}

}  // namespace
}  // namespace tallowmark
