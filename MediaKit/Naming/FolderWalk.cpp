// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Naming/FolderWalk.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <system_error>

#include "MediaKit/Naming/Kind.h"

namespace tallowmark {

namespace fs = std::filesystem;

namespace {

// Folders that hold a program's own files; copies inside photo libraries must not be taken for the
// user's originals.
bool isPackage(const fs::path& folder) {
  static constexpr std::array<std::string_view, 26> extensions{"app",
                                                               "appex",
                                                               "aplibrary",
                                                               "band",
                                                               "bundle",
                                                               "cocatalog",
                                                               "dvdmedia",
                                                               "fcpbundle",
                                                               "framework",
                                                               "imovielibrary",
                                                               "imovieproject",
                                                               "key",
                                                               "kext",
                                                               "logicx",
                                                               "lrdata",
                                                               "lrlibrary",
                                                               "migratedphotolibrary",
                                                               "musiclibrary",
                                                               "numbers",
                                                               "pages",
                                                               "photolibrary",
                                                               "photoslibrary",
                                                               "plugin",
                                                               "rtfd",
                                                               "theater",
                                                               "tvlibrary"};
  return std::find(extensions.begin(), extensions.end(), lowerCaseExtension(folder)) !=
         extensions.end();
}

bool isHidden(const fs::path& path) {
  return path.filename().string().starts_with('.');
}

// The entries of one folder by name. Listing can fail half way: what was listed counts.
std::vector<fs::directory_entry> entriesOf(const fs::path& folder, FolderWalk& walk) {
  std::vector<fs::directory_entry> entries;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    entries.push_back(*entry);
  }
  if (error) {
    walk.unreadable.push_back(folder);
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

// What the system will say nothing about is one, too: whoever reads it will be told why not.
bool isFile(const fs::directory_entry& entry, const fs::file_status& own) {
  std::error_code error;
  return fs::is_regular_file(own) || own.type() == fs::file_type::none ||
         fs::is_regular_file(entry.status(error));
}

}  // namespace

FolderWalk walkFolder(const fs::path& folder, const StopToken& stop) {
  FolderWalk walk;
  // Not recursion: folders can be nested deeper than the stack.
  std::vector<fs::directory_entry> pending = entriesOf(folder, walk);
  std::reverse(pending.begin(), pending.end());
  while (!pending.empty()) {
    stop.check();
    const fs::directory_entry entry = pending.back();
    pending.pop_back();
    if (isHidden(entry.path())) {
      continue;
    }
    std::error_code error;
    const fs::file_status own = entry.symlink_status(error);
    if (fs::is_directory(own)) {
      if (!isPackage(entry.path())) {
        const auto inside = entriesOf(entry.path(), walk);
        pending.insert(pending.end(), inside.rbegin(), inside.rend());
      }
    } else if (kindOf(entry.path()) && isFile(entry, own)) {
      walk.files.push_back(entry.path());
    }
  }
  return walk;
}

fs::path identityOf(const fs::path& file) {
  std::error_code error;
  fs::path one = fs::canonical(file, error);
  if (error) {
    one = fs::absolute(file, error).lexically_normal();
  }
  return error ? file : one;
}

bool SeenFiles::isNew(const fs::path& file) {
  return seen_.insert(identityOf(file)).second;
}

}  // namespace tallowmark
