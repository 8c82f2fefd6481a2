// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// What became of the pictures in a small clip when they were decoded.
struct DecodedPictures {
  /// Every one decodes to its last corner, without a complaint.
  bool whole = false;
  /// Tells the pictures from others; the same for the same ones.
  std::string sums;
};

/// Decodes the few pictures in a small clip; nothing when that cannot be done here. Throws Stopped.
using PictureDecoder = std::function<std::optional<DecodedPictures>(
    const std::filesystem::path& clip, const StopToken& stop)>;

}  // namespace tallowmark
