// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "DeviceKit/FileSink.h"

namespace tallowmark {

/// A copy on its way to its final name: written as a hidden file in the destination folder, and
/// given its name only when complete and synced. Unless it was published, destroying it removes
/// it. Nothing that exists is ever replaced.
class PendingFile {
 public:
  /// Creates the hidden file. Throws DeviceError::writeFailed naming the folder.
  explicit PendingFile(std::filesystem::path folder);
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  PendingFile(PendingFile&&) = delete;
  PendingFile& operator=(PendingFile&&) = delete;

  FileSink& sink() { return *sink_; }
  /// Where the bytes stand until they are published.
  const std::filesystem::path& temporaryPath() const { return temporary_; }

  /// Syncs the bytes, dates the file `modified` (as stat gives it) when there is one, and gives it
  /// the first free of the names nameAt(1), nameAt(2), …, each a file name in the folder. Returns
  /// the path it has now. Throws DeviceError::writeFailed; the hidden file goes then.
  std::filesystem::path publish(const std::function<std::string(unsigned)>& nameAt,
                                std::optional<timespec> modified);

 private:
  std::filesystem::path folder_;
  std::filesystem::path temporary_;
  std::unique_ptr<FileSink> sink_;
  int fd_ = -1;  // owned by sink_
};

/// Renames `from` to `to` in one step that fails with EEXIST when `to` is there. Returns 0 or an
/// errno; EINVAL or ENOSYS where the file system has no such rename.
int renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to);

/// The same on every file system, by other means where that rename is missing. Returns 0 or an
/// errno.
int giveName(const std::filesystem::path& from, const std::filesystem::path& to);

/// Makes the names in a folder survive a power cut, as far as its file system lets it.
void syncFolder(const std::filesystem::path& folder);

/// Removes hidden files in `folder` that a program no longer running left there. Never throws.
void removeAbandonedFiles(const std::filesystem::path& folder);

/// Bytes an ordinary user may still write in `folder`, absent when the system does not tell.
std::optional<std::uint64_t> availableSpace(const std::filesystem::path& folder);

}  // namespace tallowmark
