// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/ListedDisks.h"

#include <gtest/gtest.h>

#include "DeviceKit/Disks/DiskEnumerator.h"

namespace tallowmark {
namespace {

/// As lsblk lists a laptop with two disks, memory on its board, a card in the built-in reader, a
/// USB reader with a card and one without, a stick without partitions, and an image that is
/// attached.
constexpr const char* laptop = R"({"blockdevices": [
  {"name":"sda","path":"/dev/sda","type":"disk","size":500107862016,"rm":false,"hotplug":false,
   "subsystems":"block:scsi:pci","vendor":"ATA     ","model":"Samsung SSD","label":null,
   "mountpoints":[null],"children":[{"name":"sda1","path":"/dev/sda1","type":"part","size":5,
     "label":null,"mountpoints":["/"]}]},
  {"name":"mmcblk0","path":"/dev/mmcblk0","type":"disk","size":31268536320,"rm":false,
   "hotplug":true,"subsystems":"block:mmc:mmc_host:pci","vendor":null,"model":null,"label":null,
   "mountpoints":[null]},
  {"name":"mmcblk0boot0","path":"/dev/mmcblk0boot0","type":"disk","size":4194304,"rm":false,
   "hotplug":true,"subsystems":"block:mmc:mmc_host:pci","mountpoints":[null]},
  {"name":"mmcblk1","path":"/dev/mmcblk1","type":"disk","size":63864569856,"rm":false,
   "hotplug":true,"subsystems":"block:mmc:mmc_host:pci","vendor":null,"model":null,"label":null,
   "mountpoints":[null],"children":[{"name":"mmcblk1p1","path":"/dev/mmcblk1p1","type":"part",
     "size":5,"label":"EOS_DIGITAL","mountpoints":["/media/me/EOS_DIGITAL"]}]},
  {"name":"sdb","path":"/dev/sdb","type":"disk","size":128043712512,"rm":true,"hotplug":true,
   "subsystems":"block:scsi:usb:pci","vendor":"Generic ","model":"STORAGE DEVICE","label":null,
   "mountpoints":[null],"children":[{"name":"sdb1","path":"/dev/sdb1","type":"part","size":5,
     "label":"DJI","mountpoints":[null],"children":[{"name":"vault","path":"/dev/mapper/vault",
       "type":"crypt","size":4,"label":"Vault","mountpoints":["/media/me/Vault","/mnt/v"]}]}]},
  {"name":"sdc","path":"/dev/sdc","type":"disk","size":0,"rm":true,"hotplug":true,
   "subsystems":"block:scsi:usb:pci","vendor":"Generic ","model":"SD/MMC","mountpoints":[null]},
  {"name":"sdd","path":"/dev/sdd","type":"disk","size":8004304896,"rm":true,"hotplug":true,
   "subsystems":"block:scsi:usb:pci","vendor":null,"model":null,"label":"STICK",
   "mountpoints":["/boot/efi"]},
  {"name":"zram0","path":"/dev/zram0","type":"disk","size":8004304896,"rm":false,"hotplug":false,
   "subsystems":"block","mountpoints":["[SWAP]"]},
  {"name":"sr0","path":"/dev/sr0","type":"rom","size":1073741312,"rm":true,"hotplug":true,
   "subsystems":"block:scsi:pci","mountpoints":[null]},
  {"name":"loop0","path":"/dev/loop0","type":"loop","size":4096,"rm":false,"hotplug":false,
   "subsystems":"block","mountpoints":[null]}]})";

TEST(ListedDisks, areJudgedAsTheMacJudgesThem) {
  std::vector<ExternalDisk> offered;
  std::string withImages;
  std::string mounts;
  for (const ListedDisk& listed : parseListedDisks(laptop)) {
    if (!DiskEnumerator::isMemoryCardLike(listed.info, true)) continue;
    withImages += listed.disk.deviceIdentifier + " ";
    for (const auto& mount : listed.mounts) mounts += mount.device + " on " + mount.folder + "\n";
    if (DiskEnumerator::isMemoryCardLike(listed.info, false)) offered.push_back(listed.disk);
  }
  EXPECT_EQ(offered, (std::vector<ExternalDisk>{
                         {"mmcblk1", "SD Card", 63'864'569'856, {"EOS_DIGITAL"}},
                         {"sdb", "Generic STORAGE DEVICE", 128'043'712'512, {"DJI", "Vault"}}}));
  EXPECT_EQ(withImages, "mmcblk1 sdb loop0 ");
  EXPECT_EQ(mounts,
            "/dev/mmcblk1p1 on /media/me/EOS_DIGITAL\n"
            "/dev/mapper/vault on /media/me/Vault\n/dev/mapper/vault on /mnt/v\n");
  EXPECT_EQ(offered.at(1).rawPath(), rawPathOf("sdb"));
}

TEST(ListedDisks, areNoneInWhatIsNoList) {
  const std::string whole = laptop;
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(parseListedDisks(whole.substr(0, length)).empty()) << length;
  }
  for (const char* text :
       {"[]", "7", "{}", R"({"blockdevices":7})", R"({"blockdevices":[7,null,"sda",{}]})",
        R"({"blockdevices":[{"name":7,"type":"disk","size":"5"}]})",
        R"({"blockdevices":[{"name":"sda","type":["disk"],"size":-5,"children":{}}]})"}) {
    EXPECT_TRUE(parseListedDisks(text).empty()) << text;
  }
  EXPECT_TRUE(listDisks("/no/such/tool").empty());
}

}  // namespace
}  // namespace tallowmark
