// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Disks/DiskEnumerator.h"
#include "DeviceKit/Disks/DiskUtility.h"

namespace tallowmark {

std::string rawPathOf(const std::string& deviceIdentifier) {
  return "/dev/r" + deviceIdentifier;
}

namespace DiskEnumerator {

std::vector<ExternalDisk> externalDisks(bool includeDiskImages) {
  return DiskUtility().externalDisks(includeDiskImages);
}

std::optional<WholeDisk> wholeDisk(const std::filesystem::path& volume) {
  return DiskUtility().wholeDisk(volume);
}

bool unmountDisk(const std::string& deviceIdentifier) {
  return DiskUtility().unmountDisk(deviceIdentifier);
}

PrivilegedOpener privilegedOpener() {
  return [](const std::string& path) { return RawDeviceAccess::openThrough({}, path); };
}

}  // namespace DiskEnumerator
}  // namespace tallowmark
