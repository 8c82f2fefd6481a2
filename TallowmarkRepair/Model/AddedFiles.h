// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// A file among what the user dropped or chose.
struct AddedFile {
  /// Absolute, without "." and "..".
  std::filesystem::path url;
  /// The same for every spelling of the file.
  std::filesystem::path identity;
  /// 0 when it cannot be read.
  std::uint64_t size = 0;
  /// It is a folder that could not be looked into.
  bool unreadableFolder = false;
};

/// Opens folders, leaves out what is no kind of ours and what comes twice. Looks at the disk, which
/// can take long. Throws Stopped.
std::vector<AddedFile> findAddedFiles(const std::vector<std::filesystem::path>& urls,
                                      const StopToken& stop);

}  // namespace tallowmark
