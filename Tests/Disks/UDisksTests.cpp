// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/UDisks.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fcntl.h>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>

#include "DeviceKit/Descriptor.h"
#include "DeviceKit/DeviceError.h"
#include "DeviceKit/Disks/DiskEnumerator.h"
#include "Tests/Support/Process.h"

namespace tallowmark {
namespace {

using testing::Process;

bool appears(const std::filesystem::path& file) {
  for (int i = 0; i < 500 && !std::filesystem::exists(file); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return std::filesystem::exists(file);
}

/// A bus of its own in the place of the system's, with the stand-in service on it.
class UDisksTests : public ::testing::Test {
 protected:
  void SetUp() override {
    if (testing::run({"dbus-daemon", "--version"}).exitCode != 0) {
      GTEST_SKIP() << "dbus-daemon is not installed";
    }
    const std::string address = "unix:path=" + (folder / "bus").string();
    const std::string config =
        "<busconfig><type>session</type><listen>" + address +
        "</listen><policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
        "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy></busconfig>";
    testing::writeFile(folder / "bus.conf",
                       {reinterpret_cast<const std::uint8_t*>(config.data()), config.size()});
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    bus = std::make_unique<Process>(
        std::vector<std::string>{"dbus-daemon", "--nofork", "--config-file", folder / "bus.conf"});
    ASSERT_TRUE(appears(folder / "bus"));
  }
  void TearDown() override { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }
  static DeviceError::Kind refusal(const std::string& path) {
    try {
      const Descriptor device(UDisks::openReadOnly(path));
    } catch (const DeviceError& error) {
      return error.kind();
    }
    throw std::logic_error("opened");
  }

  testing::TemporaryFolder folder;
  std::unique_ptr<Process> bus;
  std::unique_ptr<Process> service;
};

TEST_F(UDisksTests, openDevicesForReadingAndUnmountThem) {
  EXPECT_EQ(refusal("/dev/sdb"), DeviceError::Kind::cannotOpen) << "no service yet";
  service = std::make_unique<Process>(std::vector<std::string>{STAND_IN_UDISKS, folder / "ready"});
  ASSERT_TRUE(appears(folder / "ready"));
  const Descriptor device(DiskEnumerator::privilegedOpener()("/dev/sdb"));
  struct stat passed {};
  struct stat opened {};
  ASSERT_EQ(::fstat(device.get(), &passed), 0);
  ASSERT_EQ(::stat(STAND_IN_UDISKS, &opened), 0);
  EXPECT_EQ(passed.st_ino, opened.st_ino);
  EXPECT_EQ(::fcntl(device.get(), F_GETFL) & O_ACCMODE, O_RDONLY);

  EXPECT_TRUE(UDisks::unmount("/dev/sdb1"));
  EXPECT_TRUE(UDisks::unmount("/dev/NotMounted"));
  EXPECT_FALSE(UDisks::unmount("/dev/DeviceBusy"));
  EXPECT_FALSE(UDisks::unmount("/dev/unknown"));
  for (const char* name : {"NotAuthorizedDismissed", "unknown", "rubbish", "die"}) {
    EXPECT_EQ(refusal(std::string("/dev/") + name), DeviceError::Kind::authorizationDenied) << name;
  }
  bus.reset();
  EXPECT_EQ(refusal("/dev/sdb"), DeviceError::Kind::cannotOpen) << "no bus";
}

}  // namespace
}  // namespace tallowmark
