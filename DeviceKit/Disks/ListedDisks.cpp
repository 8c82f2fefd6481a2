// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/ListedDisks.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>

namespace tallowmark {

namespace {

using nlohmann::json;

std::string textOf(const json& entry, const char* key) {
  const auto value = entry.find(key);
  if (value == entry.end() || !value->is_string()) {
    return {};
  }
  auto text = value->get<std::string>();
  // The kernel pads names of makers and models with blanks.
  text.erase(0, std::min(text.find_first_not_of(' '), text.size()));
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

bool isTrue(const json& entry, const char* key) {
  const auto value = entry.find(key);
  return value != entry.end() && value->is_boolean() && value->get<bool>();
}

std::uint64_t numberOf(const json& entry, const char* key) {
  const auto value = entry.find(key);
  return value != entry.end() && value->is_number_unsigned() ? value->get<std::uint64_t>() : 0;
}

const json& arrayIn(const json& entry, const char* key) {
  static const json none = json::array();
  const auto value = entry.find(key);  // the end where the entry is no object
  return value != entry.end() && value->is_array() ? *value : none;
}

// A file system lies on a partition, or below one that is encrypted, or on the disk itself.
void collectVolumes(const json& entry, ListedDisk& listed) {
  if (std::string label = textOf(entry, "label"); !label.empty()) {
    listed.disk.volumeNames.push_back(std::move(label));
  }
  for (const json& folder : arrayIn(entry, "mountpoints")) {
    if (folder.is_string()) {
      listed.mounts.push_back({textOf(entry, "path"), folder.get<std::string>()});
    }
  }
  for (const json& child : arrayIn(entry, "children")) collectVolumes(child, listed);
}

// The system runs from what is mounted there, swap included: "[SWAP]".
bool isSystemFolder(const std::string& folder) {
  constexpr std::array<const char*, 7> folders{"/",    "/boot", "/boot/efi", "/usr",
                                               "/var", "/home", "[SWAP]"};
  return std::find(folders.begin(), folders.end(), folder) != folders.end();
}

bool isOnBus(const json& entry, const std::string& bus) {
  return (":" + textOf(entry, "subsystems") + ":").find(":" + bus + ":") != std::string::npos;
}

// Cards in built-in readers and memory soldered to the board are both called "mmcblk0"; only the
// latter has boot partitions, which show as disks of their own.
bool isSoldered(const std::string& name, const std::set<std::string>& names) {
  return names.count(name + "boot0") > 0 || name.find("boot") != std::string::npos ||
         name.find("rpmb") != std::string::npos;
}

std::string mediaName(const json& entry) {
  const std::string maker = textOf(entry, "vendor");
  const std::string model = textOf(entry, "model");
  if (isOnBus(entry, "mmc")) {
    return model.empty() ? "SD Card" : "SD Card " + model;
  }
  return maker.empty() || model.empty() ? model : maker + " " + model;
}

ListedDisk listedDisk(const json& entry, const std::set<std::string>& names) {
  ListedDisk listed;
  listed.disk.deviceIdentifier = textOf(entry, "name");
  listed.disk.mediaName = mediaName(entry);
  listed.disk.sizeBytes = numberOf(entry, "size");
  collectVolumes(entry, listed);
  const bool isHotplug = isTrue(entry, "hotplug");
  listed.info.isDiskImage = textOf(entry, "type") == "loop";
  listed.info.isVirtual = textOf(entry, "subsystems") == "block";
  listed.info.isSystemMedia =
      (isOnBus(entry, "mmc") && isSoldered(listed.disk.deviceIdentifier, names)) ||
      std::any_of(listed.mounts.begin(), listed.mounts.end(),
                  [](const ListedDisk::Mount& mount) { return isSystemFolder(mount.folder); });
  listed.info.hasRemovableMedia = isTrue(entry, "rm");
  listed.info.isRemovableOrExternal = isHotplug;
  listed.info.isInternal = !isHotplug;
  return listed;
}

bool isWholeDisk(const json& entry) {
  const std::string type = entry.is_object() ? textOf(entry, "type") : std::string();
  // A reader without a card lists as a disk of no bytes.
  return (type == "disk" || type == "loop") && numberOf(entry, "size") > 0;
}

}  // namespace

std::vector<ListedDisk> parseListedDisks(std::string_view text) {
  const json all = json::parse(text, nullptr, false);
  std::set<std::string> names;
  for (const json& entry : arrayIn(all, "blockdevices")) {
    if (entry.is_object()) {
      names.insert(textOf(entry, "name"));
    }
  }
  std::vector<ListedDisk> disks;
  for (const json& entry : arrayIn(all, "blockdevices")) {
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
