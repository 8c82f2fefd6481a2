// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "MediaKit/Join/SplitRecordings.h"

namespace tallowmark::ClipJoin {

/// A file as the user added it, perhaps from one folder of several.
struct LocatedFile {
  std::string folder;
  FileName file;
};

/// A recording of which a piece is not among the files.
struct IncompleteRecording {
  /// Indexes of the pieces that are there, in playing order; at least one.
  std::vector<std::size_t> present;
  /// Names of the missing pieces; empty when only their existence is known.
  std::vector<std::string> missing;
  /// What the user reads.
  std::string sentence;
};

struct FoundRecordings {
  std::vector<Group> groups;
  /// Files left aside because the same piece was found before, in another folder.
  std::vector<std::size_t> copies;
  /// Recordings with a gap, or without their beginning or end. Those without beginning or end may
  /// also be among the groups.
  std::vector<IncompleteRecording> incomplete;
};

/// Finds split recordings as people keep them: pieces of one recording in several folders are one
/// recording; the same piece in two folders counts once; cameras that used the same number are
/// told apart by their folders; and a missing chapter is named.
FoundRecordings findRecordings(std::span<const LocatedFile> files);

}  // namespace tallowmark::ClipJoin
