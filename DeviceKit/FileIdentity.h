// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <optional>

namespace tallowmark {

/// Tells whether a file is still the one that was looked at: another file under the same name, one
/// that was written to and one that grew differ from it.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  timespec modified{};

  static FileIdentity of(const struct stat& status);
  /// Of an open file as it stands now; nothing when the system does not tell.
  static std::optional<FileIdentity> of(int descriptor);

  friend bool operator==(const FileIdentity& a, const FileIdentity& b) {
    return a.device == b.device && a.inode == b.inode && a.size == b.size &&
           a.modified.tv_sec == b.modified.tv_sec && a.modified.tv_nsec == b.modified.tv_nsec;
  }
};

}  // namespace tallowmark
