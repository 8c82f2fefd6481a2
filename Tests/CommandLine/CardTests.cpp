// SPDX-License-Identifier: GPL-3.0-or-later
#include <csignal>
#include <cstdlib>
#include <thread>

#include "Program.h"
#include "Tests/Support/LoopDevice.h"

namespace tallowmark::testing {
namespace {

namespace fs = std::filesystem;

TEST(DisksCommand, listsWhatTheSystemLists) {
#ifdef __APPLE__
  GTEST_SKIP() << "the Mac's own program has a fixed place";
#endif
  const TemporaryFolder folder;
  const std::string script = R"(#!/bin/sh
echo '{"blockdevices":[{"name":"sdb","path":"/dev/sdb","type":"disk","size":63864569856,"rm":true,
"hotplug":true,"subsystems":"block:scsi:usb","vendor":"Generic","model":"SD Reader","label":"EOS"},
{"name":"sda","type":"disk","size":5,"rm":false,"hotplug":false,"subsystems":"block:pci"}]}'
)";
  writeFile(folder / "lsblk",
            {reinterpret_cast<const std::uint8_t*>(script.data()), script.size()});
  fs::permissions(folder / "lsblk", fs::perms::owner_all);
  const std::string path = "PATH=" + folder.path().string() + ":/usr/bin:/bin";
  EXPECT_EQ(run({"env", path, TALLOWMARK_PROGRAM, "disks"}).output,
            "/dev/sdb: EOS · 63.9 GB · Generic SD Reader · memory card\n");
  const auto lines = linesOf(run({"env", path, TALLOWMARK_PROGRAM, "disks", "--json"}));
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0], nlohmann::json::parse(R"({"deviceIdentifier":"sdb","rawPath":"/dev/sdb",
      "mediaName":"Generic SD Reader","sizeBytes":63864569856,"volumeNames":["EOS"],
      "isMemoryCard":true})"));
  EXPECT_EQ(run({"/usr/bin/env", "PATH=/nowhere", TALLOWMARK_PROGRAM, "disks"}).errors,
            "No memory cards or external disks were found.\n");
}

/// A file in place of a card: mostly never used, with something written here and there.
class ImageCommand : public ::testing::Test {
 protected:
  static constexpr std::uint64_t size = std::uint64_t{1} << 30U;
  void SetUp() override {
    writeFile(card, Bytes(1000, 1));
    fs::resize_file(card, size);
  }
  nlohmann::json image(int exitCode) const {
    const auto result = tallowmark({"image", "--json", card, copy});
    EXPECT_EQ(result.exitCode, exitCode) << result.output << result.errors;
    return linesOf(result).at(0);
  }

  TemporaryFolder folder;
  fs::path card = folder / "card";
  fs::path copy = folder / "card.img";
};

TEST_F(ImageCommand, goesOnWhereControlCEndedIt) {
  fs::resize_file(card, size - 1);
  {
    Process running(call({"image", card, copy}));
    while (!fs::exists(folder / "card.img.part")) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    running.signal(SIGINT);
    const ProcessResult stopped = running.wait();
    EXPECT_EQ(stopped.exitCode, 130);
    EXPECT_EQ(stopped.output, card.string() + ": Stopped. What was read is in " + copy.string() +
                                  ".part; the same command again goes on from there.\n");
    EXPECT_EQ(namesIn(folder.path()),
              (std::vector<std::string>{"card", "card.img.map", "card.img.part"}));
  }
  const auto line = image(0);
  EXPECT_EQ(line["state"], "saved");
  EXPECT_EQ(line["size"], size - 1);
  EXPECT_EQ(line["unreadableBlocks"], 0);
  EXPECT_EQ(line["map"], copy.string() + ".map");
  EXPECT_TRUE(line.contains("readBefore"));
  EXPECT_EQ(run({"cmp", card, copy}).exitCode, 0);
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"card", "card.img", "card.img.map"}));
  EXPECT_EQ(image(0)["readBefore"], size - 1);
}

TEST_F(ImageCommand, leavesWhatIsNotItsOwnAlone) {
  writeFile(copy, Bytes{1, 2, 3});
  EXPECT_EQ(image(1)["message"], copy.string() +
                                     " exists already and is not a copy that can be "
                                     "gone on with. Choose another name.");
  EXPECT_EQ(contentsOf(copy), (Bytes{1, 2, 3}));
  copy = card;
  EXPECT_EQ(image(1)["state"], "failed");
  copy = folder / "missing" / "card.img";
  EXPECT_EQ(image(1)["state"], "failed");
  card = "/dev/null";
  EXPECT_EQ(image(1)["message"], "/dev/null is not a readable file or device.");
  EXPECT_EQ(namesIn(folder.path()), (std::vector<std::string>{"card", "card.img"}));
}

TEST_F(ImageCommand, saysWhenADiskTakesNoFileAsLargeAndLeavesNothingBegun) {
  Process running(call({"image", card, copy}), size - 1);
  const ProcessResult result = running.wait();
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_NE(result.output.find("takes no file as large as the card"), std::string::npos)
      << result.output;
  EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{"card"});
}

/// A mount point of the test's own; false where mounting is not allowed.
class Mounted {
 public:
  Mounted(const fs::path& folder, std::vector<std::string> arguments) : folder_(folder) {
    fs::create_directory(folder);
    arguments.insert(arguments.begin(), "mount");
    arguments.push_back(folder.string());
    ok_ = run(arguments).exitCode == 0;
  }
  ~Mounted() {
    if (ok_) run({"umount", folder_.string()});
  }
  Mounted(const Mounted&) = delete;
  Mounted& operator=(const Mounted&) = delete;
  Mounted(Mounted&&) = delete;
  Mounted& operator=(Mounted&&) = delete;
  explicit operator bool() const { return ok_; }

 private:
  fs::path folder_;
  bool ok_ = false;
};

TEST_F(ImageCommand, goesOnWhenAFullDiskHasRoomAgain) {
  writeFile(card, Bytes(6'000'000, 7));
  const Mounted disk(folder / "disk", {"-t", "tmpfs", "-o", "size=8m", "none"});
  if (!disk) GTEST_SKIP() << "mounting is not allowed here";
  writeFile(folder / "disk" / "other", Bytes(5'000'000, 1));
  copy = folder / "disk" / "card.img";
  const std::string message = image(1).value("message", "");
  EXPECT_NE(message.find("The disk is full: make room on it."), std::string::npos) << message;
  EXPECT_NE(message.find("the same command again goes on from there."), std::string::npos);
  fs::remove(folder / "disk" / "other");
  EXPECT_EQ(image(0)["state"], "saved");
  EXPECT_EQ(contentsOf(copy), contentsOf(card));
}

TEST_F(ImageCommand, neverWritesToTheCardItself) {
  fs::resize_file(card, std::uint64_t{4} << 20U);
  if (run({"mkfs.ext2", "-q", "-F", card}).exitCode != 0) {
    GTEST_SKIP() << "no mkfs.ext2 here";
  }
  const LoopDevice loop(card, 512);
  const Mounted volume(folder / "volume", {"-o", "ro", loop.path()});
  if (!loop || !volume) GTEST_SKIP() << "no loop devices, or no mounting, here";
  const auto result = tallowmark({"image", loop.path(), folder / "volume" / "card.img"});
  EXPECT_EQ(result.output, loop.path() + ": " + (folder / "volume" / "card.img").string() +
                               " lies on the card itself. Choose a folder elsewhere.\n");
  EXPECT_EQ(tallowmark({"image", loop.path(), copy}).exitCode, 0);
  EXPECT_EQ(contentsOf(copy), contentsOf(card));
}

class DevicesAsFiles : public ProgramTests {};

TEST_F(DevicesAsFiles, areInspectedAsTheyStandAndNoKindOfFileToRepair) {
  // Loop devices end with a whole block.
  fs::resize_file(cut, fs::file_size(cut) / 512 * 512);
  const auto inFile = linesOf(tallowmark({"inspect", "--json", cut})).at(0);
  const LoopDevice loop(cut, 512);
  if (!loop) GTEST_SKIP() << "no loop devices here: " << loop.complaint();
  const auto onDevice = linesOf(tallowmark({"inspect", "--json", loop.path()})).at(0);
  EXPECT_EQ(onDevice["diagnosis"], "truncated");
  EXPECT_EQ(onDevice["boxes"], inFile["boxes"]);
  EXPECT_EQ(onDevice["fileSize"], fs::file_size(cut));
  const auto checked = tallowmark({"check", loop.path()});
  EXPECT_NE(checked.output.find("Not a kind of file Repair takes"), std::string::npos);
  EXPECT_EQ(checked.exitCode, 1);
}

}  // namespace
}  // namespace tallowmark::testing
