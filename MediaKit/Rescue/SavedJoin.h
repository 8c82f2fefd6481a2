// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Join/ClipJoin.h"

namespace tallowmark {

/// The end of a join.
namespace JoinState {

/// The joined clip stands complete in its folder.
struct Saved {
  std::filesystem::path path;
  ClipJoin::Result result;
};
/// The parts are not pieces of one recording; a sentence for the user.
struct Incompatible {
  std::string message;
};
/// Reading or writing went wrong; a sentence for the user.
struct Failed {
  std::string message;
};

using Any = std::variant<Saved, Incompatible, Failed>;

}  // namespace JoinState

/// Opens and parses the parts of a recording, in the order given. Throws as ClipJoin::readPart, and
/// Stopped.
std::vector<ClipJoin::Part> readJoinParts(std::span<const std::filesystem::path> files,
                                          const StopToken& stop);

/// Joins the parts, in playing order, into a clip in `folder` that is named after the first part
/// and has its modification time. Replaces nothing; there is no partial file unless it returns
/// Saved. Throws Stopped, nothing else but for want of memory.
JoinState::Any saveJoinedClip(std::span<const std::filesystem::path> parts,
                              const std::filesystem::path& folder, const Progress& progress,
                              const StopToken& stop);

}  // namespace tallowmark
