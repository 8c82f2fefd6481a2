// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>

#include "DeviceKit/FileIdentity.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark {

/// What working out the repair of a clip gave: it is not worked out again while the clip is the
/// same.
struct LearntClip {
  /// Of the damaged clip.
  FileIdentity identity;
  VideoRepair::Plan plan;

  /// Roughly what it takes in memory.
  std::size_t bytes() const;
};

}  // namespace tallowmark
