// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Photo/JPEGScan.h"
#include "MediaKit/Photo/JPEGStructure.h"

namespace tallowmark::JPEGRepair {

/// What of a file is its picture's own data, and what in there is damage.
struct OwnData {
  /// Where marker codes stand in the midst of the data that no picture holds there: damage made
  /// them of a restart marker, of a byte that is stuffed with zero, or of anything. Decoders give
  /// up there.
  std::vector<std::size_t> strays;
  /// Just past the EOI. Without one, where another file starts, a segment is cut or nothing but
  /// rubble follows; else the end of the data.
  std::size_t end = 0;
  /// The data ends with EOI.
  bool ended = false;
};

/// Follows a picture from its first scan on. `frame` is its frame header, where that is known.
OwnData findOwnData(ByteView data, const std::optional<Segment>& frame, const ScanStart& first);

/// The data with what most likely stood there: the restart markers whose turn it was, when the ones
/// around tell that they are missing, and stuffed bytes otherwise. `header` is that of `data`,
/// `own` what was found in it.
std::vector<std::uint8_t> withoutStrayMarkers(ByteView data, const Header& header,
                                              const OwnData& own);

/// The data with a stuffed byte for each stray marker.
std::vector<std::uint8_t> withStuffedBytes(ByteView data, const std::vector<std::size_t>& strays);

}  // namespace tallowmark::JPEGRepair
