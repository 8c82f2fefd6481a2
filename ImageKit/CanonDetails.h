// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <vector>

#include "MediaKit/Photo/MarkerSearch.h"

namespace tallowmark {

/// Where a Canon CR3 file keeps its details: each a TIFF file of its own inside the movie box.
struct CanonDetails {
  std::vector<std::uint8_t> tiff;
  std::vector<std::uint8_t> exif;
  std::vector<std::uint8_t> gps;
};

/// Nothing when the file is no CR3. What cannot be found stays empty: a file cut short often has
/// its details whole, as they stand near its start.
std::optional<CanonDetails> canonDetails(ByteView image);

}  // namespace tallowmark
