// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <set>
#include <vector>

#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// What walking a folder found.
struct FolderWalk {
  /// Files of the kinds that the program takes, in name order, a subfolder's where its name stands.
  std::vector<std::filesystem::path> files;
  /// Folders that could not be listed: what is in them was not looked at.
  std::vector<std::filesystem::path> unreadable;
};

/// Walks `folder` with everything below it. Hidden files, hidden folders and the contents of
/// packages (folders that the Mac shows as one document) are left out. A link to a file counts as
/// the file; links to folders are not followed, so that links in a circle do no harm. Never throws
/// for what it finds, only Stopped.
FolderWalk walkFolder(const std::filesystem::path& folder, const StopToken& stop = {});

/// The same path for every spelling of a file and every link to it.
std::filesystem::path identityOf(const std::filesystem::path& file);

/// Tells files met before from new ones: the same file by another spelling or through a link is one
/// file.
class SeenFiles {
 public:
  /// Whether the file was not met before; from now on it was.
  bool isNew(const std::filesystem::path& file);

 private:
  std::set<std::filesystem::path> seen_;
};

}  // namespace tallowmark
