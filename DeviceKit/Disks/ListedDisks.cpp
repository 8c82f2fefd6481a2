// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/ListedDisks.h"

#include <algorithm>
#include <array>
#include <set>

#include "JSONDocuments/JSONValue.h"

namespace tallowmark {

namespace {

// The kernel pads names of makers and models with blanks.
std::string textOf(const JSONValue& entry, const char* key) {
  std::string text = entry.text(key).value_or("");
  text.erase(0, std::min(text.find_first_not_of(' '), text.size()));
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// A file system lies on a partition, or below one that is encrypted, or on the disk itself.
void collectVolumes(const JSONValue& entry, ListedDisk& listed) {
  if (std::string label = textOf(entry, "label"); !label.empty()) {
    listed.disk.volumeNames.push_back(std::move(label));
  }
  for (std::string& folder : entry.texts("mountpoints")) {
    listed.mounts.push_back({textOf(entry, "path"), std::move(folder)});
  }
  for (const JSONValue& child : entry.items("children")) collectVolumes(child, listed);
}

// The system runs from what is mounted there, swap included: "[SWAP]".
bool isSystemFolder(const std::string& folder) {
  constexpr std::array<const char*, 7> folders{"/",    "/boot", "/boot/efi", "/usr",
                                               "/var", "/home", "[SWAP]"};
  return std::find(folders.begin(), folders.end(), folder) != folders.end();
}

bool isOnBus(const JSONValue& entry, const std::string& bus) {
  return (":" + textOf(entry, "subsystems") + ":").find(":" + bus + ":") != std::string::npos;
}

// Cards in built-in readers and memory soldered to the board are both called "mmcblk0"; only the
// latter has boot partitions, which show as disks of their own.
bool isSoldered(const std::string& name, const std::set<std::string>& names) {
  return names.count(name + "boot0") > 0 || name.find("boot") != std::string::npos ||
         name.find("rpmb") != std::string::npos;
}

std::string mediaName(const JSONValue& entry) {
  const std::string maker = textOf(entry, "vendor");
  const std::string model = textOf(entry, "model");
  if (isOnBus(entry, "mmc")) {
    return model.empty() ? "SD Card" : "SD Card " + model;
  }
  return maker.empty() || model.empty() ? model : maker + " " + model;
}

ListedDisk listedDisk(const JSONValue& entry, const std::set<std::string>& names) {
  ListedDisk listed;
  listed.disk.deviceIdentifier = textOf(entry, "name");
  listed.disk.mediaName = mediaName(entry);
  listed.disk.sizeBytes = entry.number("size").value_or(0);
  collectVolumes(entry, listed);
  const bool isHotplug = entry.flag("hotplug") == true;
  listed.info.isDiskImage = textOf(entry, "type") == "loop";
  listed.info.isVirtual = textOf(entry, "subsystems") == "block";
  listed.info.isSystemMedia =
      (isOnBus(entry, "mmc") && isSoldered(listed.disk.deviceIdentifier, names)) ||
      std::any_of(listed.mounts.begin(), listed.mounts.end(),
                  [](const ListedDisk::Mount& mount) { return isSystemFolder(mount.folder); });
  listed.info.hasRemovableMedia = entry.flag("rm") == true;
  listed.info.isRemovableOrExternal = isHotplug;
  listed.info.isInternal = !isHotplug;
  return listed;
}

bool isWholeDisk(const JSONValue& entry) {
  const std::string type = textOf(entry, "type");
  // A reader without a card lists as a disk of no bytes.
  return (type == "disk" || type == "loop") && entry.number("size").value_or(0) > 0;
}

}  // namespace

std::vector<ListedDisk> parseListedDisks(std::string_view text) {
  const auto all = JSONValue::parse(text);
  const auto entries = all ? all->items("blockdevices") : std::vector<JSONValue>();
  std::set<std::string> names;
  for (const JSONValue& entry : entries) {
    if (entry.isObject()) {
      names.insert(textOf(entry, "name"));
    }
  }
  std::vector<ListedDisk> disks;
  for (const JSONValue& entry : entries) {
    if (isWholeDisk(entry)) {
      disks.push_back(listedDisk(entry, names));
    }
  }
  return disks;
}

std::vector<ListedDisk> listDisks(const std::string& program, const ToolLimits& limits) {
  const auto output =
      outputOf({program, "--json", "--bytes", "--output",
                "NAME,PATH,TYPE,SIZE,RM,HOTPLUG,SUBSYSTEMS,VENDOR,MODEL,LABEL,MOUNTPOINTS"},
               limits);
  return output ? parseListedDisks(*output) : std::vector<ListedDisk>();
}

}  // namespace tallowmark
