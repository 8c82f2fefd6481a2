// SPDX-License-Identifier: GPL-3.0-or-later
#include "CommandLine/Destination.h"

#include <system_error>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PendingFile.h"

namespace tallowmark {

std::string prepareDestination(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error && !std::filesystem::is_directory(folder)) {
    return DeviceError::writeFailed(folder.string(), error.value()).what();
  }
  removeAbandonedFiles(folder);
  return {};
}

}  // namespace tallowmark
