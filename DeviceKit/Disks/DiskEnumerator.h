// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "DeviceKit/Disks/DiskInfo.h"
#include "DeviceKit/Disks/ExternalDisk.h"
#include "DeviceKit/RawDeviceAccess.h"

/// The disks that are attached now, as the system lists them.
namespace tallowmark::DiskEnumerator {

/// Disks and cards that are not built in; none when the system does not tell.
std::vector<ExternalDisk> externalDisks(bool includeDiskImages);

/// Whether a disk is one to offer.
bool isMemoryCardLike(const DiskInfo& info, bool allowDiskImages);

/// The disk that holds the volume mounted there; nothing when none does.
std::optional<WholeDisk> wholeDisk(const std::filesystem::path& volume);

/// Unmounts every volume of a disk. Returns whether that went well.
bool unmountDisk(const std::string& deviceIdentifier);

/// Asks the user for leave to read a device, in the system's own way.
PrivilegedOpener privilegedOpener();

}  // namespace tallowmark::DiskEnumerator
