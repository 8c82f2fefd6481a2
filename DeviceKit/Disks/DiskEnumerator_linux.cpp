// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>

#include "DeviceKit/Disks/DiskEnumerator.h"
#include "DeviceKit/Disks/ListedDisks.h"
#include "DeviceKit/Disks/UDisks.h"

namespace tallowmark {

std::string rawPathOf(const std::string& deviceIdentifier) {
  return "/dev/" + deviceIdentifier;
}

namespace DiskEnumerator {

std::vector<ExternalDisk> externalDisks(bool includeDiskImages) {
  std::vector<ExternalDisk> disks;
  for (ListedDisk& listed : listDisks()) {
    if (isMemoryCardLike(listed.info, includeDiskImages)) {
      disks.push_back(std::move(listed.disk));
    }
  }
  return disks;
}

std::optional<WholeDisk> wholeDisk(const std::filesystem::path& volume) {
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::canonical(volume, error);
  for (const ListedDisk& listed : listDisks()) {
    if (std::any_of(
            listed.mounts.begin(), listed.mounts.end(),
            [&](const ListedDisk::Mount& mount) { return mount.folder == folder.string(); })) {
      const ExternalDisk& disk = listed.disk;
      return WholeDisk{disk.deviceIdentifier, disk.rawPath(), disk.sizeBytes};
    }
  }
  return std::nullopt;
}

bool unmountDisk(const std::string& deviceIdentifier) {
  const std::vector<ListedDisk> all = listDisks();
  const auto listed = std::find_if(all.begin(), all.end(), [&](const ListedDisk& candidate) {
    return candidate.disk.deviceIdentifier == deviceIdentifier;
  });
  return listed != all.end() &&
         std::all_of(listed->mounts.begin(), listed->mounts.end(),
                     [](const ListedDisk::Mount& mount) { return UDisks::unmount(mount.device); });
}

PrivilegedOpener privilegedOpener() {
  return UDisks::openReadOnly;
}

}  // namespace DiskEnumerator
}  // namespace tallowmark
