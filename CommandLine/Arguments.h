// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <variant>
#include <vector>

namespace tallowmark {

/// How a run ends, for scripts.
namespace ExitStatus {
inline constexpr int allWell = 0;
inline constexpr int someNotWell = 1;
inline constexpr int wrongCall = 2;
/// Added to the number of the signal that ended a run, as shells do.
inline constexpr int signalled = 128;
}  // namespace ExitStatus

struct CheckRequest {
  std::vector<std::filesystem::path> paths;
  bool json = false;
};

struct RepairRequest {
  std::vector<std::filesystem::path> paths;
  /// Where copies go; not a file.
  std::filesystem::path folder;
  /// The user's own choice of a good file.
  std::optional<std::filesystem::path> reference;
  /// Leave out of a rebuilt clip what more than its framing is needed for.
  bool basic = false;
  bool json = false;
};

struct JoinRequest {
  std::vector<std::filesystem::path> paths;
  /// Where joined clips go; not a file.
  std::filesystem::path folder;
  /// Find split recordings among the paths, instead of joining them all into one.
  bool find = false;
  bool json = false;
};

struct InspectRequest {
  std::filesystem::path file;
  bool samples = false;
  bool json = false;
};

struct DisksRequest {
  bool json = false;
};

struct ImageRequest {
  /// The card, or a file in place of one.
  std::filesystem::path device;
  /// What the copy is called.
  std::filesystem::path file;
  bool json = false;
};

/// A call that needs no more than this: help, the version, a mistake.
struct Finished {
  int exitStatus = 0;
};

using Request = std::variant<CheckRequest, RepairRequest, JoinRequest, InspectRequest, DisksRequest,
                             ImageRequest, Finished>;

/// What the program was called for. Has printed what there is to say when that is all.
Request parseArguments(int count, char** arguments);

}  // namespace tallowmark
