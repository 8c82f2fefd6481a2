// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/DiskUtility.h"

#include <gtest/gtest.h>

#include <set>
#include <unordered_set>

#include "DeviceKit/Disks/DiskEnumerator.h"
#include "Tests/Support/Process.h"

namespace tallowmark {
namespace {

using std::chrono::milliseconds;

std::string plist(const std::string& dictionary) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
         "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">"
         "<dict>" +
         dictionary + "</dict></plist>\n";
}

std::string key(const char* name, const char* kind, const std::string& value) {
  return std::string("<key>") + name + "</key><" + kind + ">" + value + "</" + kind + ">";
}

std::string key(const char* name, bool value) {
  return std::string("<key>") + name + "</key>" + (value ? "<true/>" : "<false/>");
}

DiskInfo infoFrom(const std::string& dictionary) {
  const auto list = PropertyList::parse(plist(dictionary));
  return list ? diskInfo(*list) : throw std::runtime_error("no property list");
}

TEST(MemoryCardLike, isWhatPeoplePutInAndPlugIn) {
  const std::string image = key("BusProtocol", "string", "Disk Image");
  const std::string internal = key("Internal", true);
  const struct {
    const char* what;
    std::string info;
    bool passes;
    bool passesWithImages;
  } rows[] = {
      {"USB reader", key("Internal", false) + key("RemovableMedia", true), true, true},
      {"says nothing", "", true, true},
      {"disk image", image + key("VirtualOrPhysical", "string", "Virtual"), false, true},
      {"synthesized", key("VirtualOrPhysical", "string", "Virtual"), false, false},
      {"physical", key("VirtualOrPhysical", "string", "Physical"), true, true},
      {"the system's", key("OSInternalMedia", true) + key("RemovableMedia", true), false, false},
      {"a system image", key("SystemImage", true), false, false},
      {"built-in disk", internal, false, false},
      {"built-in reader", internal + key("RemovableMedia", true), true, true},
      {"built in, ejectable", internal + key("Ejectable", true), false, false},
      {"built in, external", internal + key("RemovableMediaOrExternalDevice", true), false, false},
      {"built in, both",
       internal + key("RemovableMediaOrExternalDevice", true) + key("Ejectable", true), true, true},
      {"wrong kinds",
       key("Internal", "string", "true") + key("SystemImage", "integer", "1") +
           key("BusProtocol", true),
       true, true},
      {"wrong kind of removable", internal + key("RemovableMedia", "integer", "1"), false, false},
  };
  for (const auto& row : rows) {
    const DiskInfo info = infoFrom(row.info);
    EXPECT_EQ(DiskEnumerator::isMemoryCardLike(info, false), row.passes) << row.what;
    EXPECT_EQ(DiskEnumerator::isMemoryCardLike(info, true), row.passesWithImages) << row.what;
  }
}

TEST(ExternalDisks, areCardsWhenTheirNamesSaySo) {
  for (const char* name : {"Built In SDXC Reader", "USB3.0 CRW-SD/MS", "CFexpress"}) {
    EXPECT_TRUE((ExternalDisk{"disk4", name, 1, {}}.isMemoryCard())) << name;
  }
  for (const char* name : {"SDcard", "Wisdom Disk", "Sandisk Extreme", ""}) {
    EXPECT_FALSE((ExternalDisk{"disk4", name, 1, {}}.isMemoryCard())) << name;
  }
  const ExternalDisk disk{"disk4", "SD", 63'864'569'856, {"EOS", "DATA"}};
  EXPECT_EQ(disk.displayName(), "EOS, DATA");
  EXPECT_EQ((ExternalDisk{"disk4", "", 0, {}}.displayName()), "disk4");
  EXPECT_EQ(disk.sizeDescription(), "63.9 GB");
  EXPECT_EQ(sizeText(999), "999 bytes");
  EXPECT_EQ(sizeText(999'960'000'000), "1.0 TB");
  const std::unordered_set<ExternalDisk> disks{disk, disk, {"disk5", "SD", 1, {}}};
  EXPECT_EQ(disks.size(), 2U);
}

/// A folder with a program in the place of diskutil.
class DiskUtilityTests : public ::testing::Test {
 protected:
  void record(const std::string& name, const std::string& text) const {
    testing::writeFile(folder / name,
                       {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  }
  DiskUtility program(const std::string& script, milliseconds patience = milliseconds(20'000)) {
    record("diskutil", "#!/bin/sh\ncd " + folder.path().string() + "\n" + script);
    std::filesystem::permissions(folder / "diskutil", std::filesystem::perms::owner_all);
    return DiskUtility((folder / "diskutil").string(), {patience, 1 << 20});
  }

  testing::TemporaryFolder folder;
};

TEST_F(DiskUtilityTests, listsWhatIsNotBuiltIn) {
  const auto volume = [](const char* name) {
    return "<dict>" + key("VolumeName", "string", name) + "</dict>";
  };
  const auto disk = [](const char* name, const char* size, const std::string& more) {
    return "<dict>" + key("DeviceIdentifier", "string", name) + key("Size", "integer", size) +
           more + "</dict>";
  };
  record("list", plist(key("AllDisksAndPartitions", "array",
                           disk("disk0", "500277790720", "") +
                               disk("disk4", "63864569856",
                                    key("Partitions", "array", volume("EOS_DIGITAL") + "<dict/>")) +
                               disk("disk5", "1000", key("APFSVolumes", "array", volume("Ü"))) +
                               disk("disk6", "7", "") + "<dict/><string>disk7</string>")));
  record("disk0", plist(key("Internal", true) + key("Size", "integer", "500277790720")));
  record("disk4", plist(key("Internal", true) + key("RemovableMedia", true) +
                        key("MediaName", "string", "Built In SDXC Reader") +
                        key("Size", "integer", "63864569856")));
  record("disk5", plist(key("BusProtocol", "string", "Disk Image")));
  record("disk6", "rubbish");
  record("volume", plist(key("ParentWholeDisk", "string", "disk4")));
  const DiskUtility tool = program(
      "case \"$*\" in\n"
      "  'list -plist') exec cat list ;;\n"
      "  'info -plist /Volumes/EOS') exec cat volume ;;\n"
      "  'info -plist '*) exec cat \"$3\" ;;\n"
      "  'unmountDisk /dev/disk4') exit 0 ;;\n"
      "esac\nexit 1\n");
  const ExternalDisk card{"disk4", "Built In SDXC Reader", 63'864'569'856, {"EOS_DIGITAL"}};
  EXPECT_EQ(tool.externalDisks(false), std::vector<ExternalDisk>{card});
  EXPECT_TRUE(card.isMemoryCard());
  EXPECT_EQ(tool.externalDisks(true),
            (std::vector<ExternalDisk>{card, {"disk5", "", 1000, {"Ü"}}}));
  EXPECT_EQ(tool.wholeDisk("/Volumes/EOS"), (WholeDisk{"disk4", "/dev/rdisk4", 63'864'569'856}));
  EXPECT_EQ(tool.wholeDisk("/Volumes/none"), std::nullopt);
  EXPECT_TRUE(tool.unmountDisk("disk4"));
  EXPECT_FALSE(tool.unmountDisk("disk0"));
}

TEST_F(DiskUtilityTests, knowsNothingWhenTheProgramFails) {
  record("other", plist(key("AllDisks", "array", "")));
  record("kind", plist(key("AllDisksAndPartitions", "string", "")));
  for (const char* script : {"exit 1", "kill -9 $$", "exec sleep 600", "echo rubbish", "true",
                             "cat other", "cat kind", "printf 'bplist00'", "exec yes"}) {
    EXPECT_TRUE(program(script, milliseconds(500)).externalDisks(true).empty()) << script;
    EXPECT_EQ(program(script, milliseconds(500)).wholeDisk("/"), std::nullopt) << script;
  }
  EXPECT_TRUE(DiskUtility("/no/such/tool").externalDisks(true).empty());
  EXPECT_FALSE(DiskUtility("/no/such/tool").unmountDisk("disk4"));
}

}  // namespace
}  // namespace tallowmark
