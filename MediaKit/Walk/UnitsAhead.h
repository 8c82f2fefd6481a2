// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Bitstream/NALFormat.h"

namespace tallowmark {

/// Where a picture begins that was found at `picture` by its first slice, no earlier than `from`:
/// delimiters, parameter sets and messages may stand ahead of it that the reference's pictures do
/// not have (ITU-T H.264 §7.4.1.2.3, H.265 §7.4.2.4.4). Their lengths lead right to it, as other
/// data does once in some billion times; prefixes of less than four bytes tell too little. Throws
/// DeviceError.
std::uint64_t startOfUnitsAhead(std::uint64_t from, std::uint64_t picture, const NALFormat& format,
                                const ByteSource& source);

}  // namespace tallowmark
