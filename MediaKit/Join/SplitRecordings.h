// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Cameras split long recordings at the 4 GB limit of their cards' file system. Everything about
/// making one clip of the pieces again.
namespace tallowmark::ClipJoin {

/// What the camera tells by a file's name and length; the file is not opened.
struct FileName {
  /// With its extension, without any folder.
  std::string name;
  /// Bytes.
  std::uint64_t size = 0;

  friend bool operator==(const FileName&, const FileName&) = default;
};

/// Indexes into the caller's list of files, in playing order; at least two.
using Group = std::vector<std::size_t>;

/// Where a GoPro file belongs.
struct Chapter {
  /// Equal for all files of one recording.
  std::string key;
  /// The place in the recording; the oldest cameras count from 0, the others from 1.
  int order = 0;

  friend bool operator==(const Chapter&, const Chapter&) = default;
};

/// A DJI file of at least this length did not end its recording: it was split.
inline constexpr std::uint64_t smallestSplitDJIFile = 3'700'000'000;

/// The recordings that names and sizes show to be split, in the order of their first files. A file
/// is in one group at most; a GoPro recording with a gap is in none.
std::vector<Group> splitRecordings(std::span<const FileName> files);

/// Nothing when the name is not a GoPro's. Upper and lower case are one.
std::optional<Chapter> goProChapter(std::string_view name);

/// The running number of a DJI file; nothing when the name is not a DJI's.
std::optional<int> djiNumber(std::string_view name);

/// The DJI recordings alone, in the order of their numbers.
std::vector<Group> djiSplits(std::span<const FileName> files);

/// `name` with its ASCII letters in upper case.
std::string upperCased(std::string_view name);

}  // namespace tallowmark::ClipJoin
