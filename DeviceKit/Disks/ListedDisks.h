// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DeviceKit/ChildProcess.h"
#include "DeviceKit/Disks/DiskInfo.h"
#include "DeviceKit/Disks/ExternalDisk.h"

namespace tallowmark {

/// A disk as Linux lists it, with everything mounted from it.
struct ListedDisk {
  ExternalDisk disk;
  DiskInfo info;

  struct Mount {
    /// The device that is mounted: "/dev/sdb1".
    std::string device;
    std::string folder;
  };
  std::vector<Mount> mounts;
};

/// Reads what `lsblk --json --bytes` prints; none for what is something else.
std::vector<ListedDisk> parseListedDisks(std::string_view json);

/// Runs lsblk(8). None when it cannot tell.
std::vector<ListedDisk> listDisks(const std::string& program = "lsblk",
                                  const ToolLimits& limits = {});

}  // namespace tallowmark
