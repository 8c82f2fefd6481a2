// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Container/Box.h"

namespace tallowmark {

/// Where the parts of a movie file lie: the readable prefix of its top level.
struct FileLayout {
  std::optional<Box> ftyp;
  /// Present only when complete.
  std::optional<Box> moov;
  /// In file order; the last one may be truncated.
  std::vector<Box> mdats;
  /// The source's size at the time of the scan.
  std::uint64_t fileSize = 0;
};

}  // namespace tallowmark
