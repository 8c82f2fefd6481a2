// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// What became of the pictures in small clips when they were decoded.
struct DecodedPictures {
  /// Every one decodes to its last corner, without a complaint.
  bool whole = false;
  /// For each clip, what tells its pictures from others; the same for the same ones.
  std::vector<std::string> sums;
};

/// Decodes the few pictures in each of some small clips; nothing when that cannot be done here.
/// Throws Stopped.
using PictureDecoder = std::function<std::optional<DecodedPictures>(
    std::span<const std::filesystem::path> clips, const StopToken& stop)>;

}  // namespace tallowmark
