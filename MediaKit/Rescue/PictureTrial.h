// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <optional>

#include "DeviceKit/StopToken.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark {

/// Whether the few pictures in a small clip decode to their ends; nothing when that cannot be told.
/// Throws Stopped.
using PictureTrial =
    std::function<std::optional<bool>(const std::filesystem::path& clip, const StopToken& stop)>;

/// Tries some of a rebuilt clip's pictures, from key pictures on. A reference of another resolution
/// teaches where the frames lie all the same, and nothing but decoding them shows that its
/// parameter sets are not theirs. Pictures are written for it into hidden files in `folder`, one
/// file at a time. Throws MediaError::noVideo when hardly any decodes and the reference's do,
/// DeviceError, Stopped. A plan that was not rebuilt has its own parameter sets and passes, as does
/// everything where nothing can be tried or written.
void requireDecodable(const VideoRepair::Plan& plan, const ByteSource& source,
                      const ByteSource* reference, const std::filesystem::path& folder,
                      const PictureTrial& trial, const StopToken& stop);

}  // namespace tallowmark
