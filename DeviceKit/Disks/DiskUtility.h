// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "DeviceKit/ChildProcess.h"
#include "DeviceKit/Disks/ExternalDisk.h"

namespace tallowmark {

/// The Mac's program for disks, which prints property lists. What it cannot tell is nothing.
class DiskUtility {
 public:
  explicit DiskUtility(std::string program = "/usr/sbin/diskutil", ToolLimits limits = {})
      : program_(std::move(program)), limits_(limits) {}

  std::vector<ExternalDisk> externalDisks(bool includeDiskImages) const;
  std::optional<WholeDisk> wholeDisk(const std::filesystem::path& volume) const;
  bool unmountDisk(const std::string& deviceIdentifier) const;

 private:
  std::string program_;
  ToolLimits limits_;
};

}  // namespace tallowmark
