// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// The ffmpeg program: in PATH, beside this program, or where the Mac's package managers put it.
std::optional<std::filesystem::path> findFFmpeg();

/// Makes small clips for a player. Damaged media is decoded by the ffmpeg program, in a child
/// process of low priority that is held in memory, time and what it writes, and that reads nothing
/// but that one file; never inside this program.
class PreviewExport {
 public:
  /// Without a program no preview is made.
  explicit PreviewExport(std::optional<std::filesystem::path> ffmpeg = findFFmpeg(),
                         std::chrono::milliseconds timeLimit = std::chrono::minutes(2))
      : ffmpeg_(std::move(ffmpeg)), timeLimit_(timeLimit) {}

  /// Writes the first `seconds` of a movie file as MPEG-4 (H.264, AAC), upright and fitted into
  /// 640×480, in place of what `destination` held; true when it stands complete. May be called from
  /// any thread, and blocks it. The child is killed after the time limit, with all that it started,
  /// and with a stop: then throws Stopped.
  bool makePreview(const std::filesystem::path& clip, const std::filesystem::path& destination,
                   double seconds, const StopToken& stop) const;

 private:
  std::optional<std::filesystem::path> ffmpeg_;
  std::chrono::milliseconds timeLimit_;
};

}  // namespace tallowmark
