// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/DiskUtility.h"

#include "DeviceKit/Disks/DiskEnumerator.h"
#include "PropertyLists/PropertyList.h"

namespace tallowmark {

namespace {

using Words = std::vector<std::string>;

std::optional<PropertyList> listFrom(const Words& command, const ToolLimits& limits) {
  const auto output = outputOf(command, limits);
  return output ? PropertyList::parse(*output) : std::nullopt;
}

ExternalDisk diskIn(const PropertyList& entry) {
  ExternalDisk disk;
  disk.deviceIdentifier = entry.text("DeviceIdentifier").value_or("");
  disk.sizeBytes = entry.number("Size").value_or(0);
  for (const char* kind : {"Partitions", "APFSVolumes"}) {
    for (const PropertyList& volume : entry.items(kind)) {
      if (auto name = volume.text("VolumeName"); name && !name->empty()) {
        disk.volumeNames.push_back(std::move(*name));
      }
    }
  }
  return disk;
}

}  // namespace

std::vector<ExternalDisk> DiskUtility::externalDisks(bool includeDiskImages) const {
  std::vector<ExternalDisk> disks;
  const auto all = listFrom({program_, "list", "-plist"}, limits_);
  if (!all) {
    return disks;
  }
  for (const PropertyList& entry : all->items("AllDisksAndPartitions")) {
    ExternalDisk disk = diskIn(entry);
    const auto info = disk.deviceIdentifier.empty()
                          ? std::nullopt
                          : listFrom({program_, "info", "-plist", disk.deviceIdentifier}, limits_);
    if (info && DiskEnumerator::isMemoryCardLike(diskInfo(*info), includeDiskImages)) {
      disk.mediaName = info->text("MediaName").value_or("");
      disks.push_back(std::move(disk));
    }
  }
  return disks;
}

std::optional<WholeDisk> DiskUtility::wholeDisk(const std::filesystem::path& volume) const {
  const auto info = listFrom({program_, "info", "-plist", volume.string()}, limits_);
  const auto identifier = info ? info->text("ParentWholeDisk") : std::nullopt;
  const auto whole =
      identifier ? listFrom({program_, "info", "-plist", *identifier}, limits_) : std::nullopt;
  const auto size = whole ? whole->number("Size") : std::nullopt;
  if (!size) {
    return std::nullopt;
  }
  return WholeDisk{*identifier, "/dev/r" + *identifier, *size};
}

bool DiskUtility::unmountDisk(const std::string& deviceIdentifier) const {
  return outputOf({program_, "unmountDisk", "/dev/" + deviceIdentifier}, limits_).has_value();
}

}  // namespace tallowmark
