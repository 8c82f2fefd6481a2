// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/AddedFiles.h"

#include <set>
#include <system_error>

#include "MediaKit/Naming/FolderWalk.h"
#include "MediaKit/Naming/Kind.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

AddedFile addedFile(const fs::path& path) {
  AddedFile file;
  std::error_code error;
  file.url = fs::absolute(path, error).lexically_normal();
  file.identity = identityOf(path);
  // "link/.." is not where the link stands: then the path stays as it was given.
  if (identityOf(file.url) != file.identity) {
    file.url = fs::absolute(path, error);
  }
  const std::uintmax_t size = fs::file_size(path, error);
  file.size = error ? 0 : size;
  return file;
}

}  // namespace

std::vector<AddedFile> findAddedFiles(const std::vector<fs::path>& urls, const StopToken& stop) {
  std::vector<AddedFile> found;
  std::set<fs::path> seen;
  const auto take = [&](const fs::path& path, bool unreadableFolder) {
    stop.check();
    AddedFile file = addedFile(path);
    file.unreadableFolder = unreadableFolder;
    if (seen.insert(file.identity).second) {
      found.push_back(std::move(file));
    }
  };
  for (const fs::path& url : urls) {
    std::error_code error;
    if (fs::is_directory(url, error)) {
      const FolderWalk walk = walkFolder(url, stop);
      for (const fs::path& file : walk.files) take(file, false);
      for (const fs::path& folder : walk.unreadable) take(folder, true);
    } else if (kindOf(url)) {
      take(url, false);
    }
  }
  return found;
}

}  // namespace tallowmark
