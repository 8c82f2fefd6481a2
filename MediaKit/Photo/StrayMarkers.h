// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "MediaKit/Photo/JPEGStructure.h"

namespace tallowmark::JPEGRepair {

/// Where marker codes stand in the midst of a picture's data that no picture holds (reserved ones,
/// ISO/IEC 10918-1 table B.1): a damaged byte made them of a restart marker or of a byte that is
/// stuffed with zero, and decoders give up there. Empty unless the picture ends with EOI behind
/// them, and when there are too many to be damaged bytes. `header` is that of `data`.
std::vector<std::size_t> findStrayMarkers(ByteView data, const Header& header);

/// The data with what most likely stood there: the restart marker whose turn it was, when the next
/// one tells that it is missing; otherwise of that and a stuffed byte the one with which more of
/// the picture decodes.
std::vector<std::uint8_t> withoutStrayMarkers(ByteView data, const Header& header,
                                              const std::vector<std::size_t>& strays);

}  // namespace tallowmark::JPEGRepair
