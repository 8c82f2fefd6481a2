// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "MediaKit/Container/Movie.h"

namespace tallowmark::ClipJoin {

/// What tells that a file is still the one that was looked at.
struct FileStamp {
  std::uint64_t size = 0;
  std::filesystem::file_time_type modified;

  /// Nothing when the file cannot be looked at.
  static std::optional<FileStamp> of(const std::filesystem::path& file);
  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

/// One piece of a recording.
struct Part {
  std::filesystem::path url;
  Movie movie;
  /// The file when `movie` was read from it; absent when nobody looked.
  std::optional<FileStamp> stamp;

  /// The file's name without its folder, for messages.
  std::string name() const { return url.filename().string(); }
};

/// Opens and parses one piece. Throws DeviceError when it cannot be read, and
/// MediaError::unsupported with a sentence that names the file when it is no whole clip.
Part readPart(const std::filesystem::path& url);

}  // namespace tallowmark::ClipJoin
