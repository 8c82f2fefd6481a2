// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/ParameterSets.h"

namespace tallowmark {

/// Where a picture begins that was found at `picture` by its first slice, no earlier than `from`:
/// delimiters, parameter sets and messages may stand ahead of it that the reference's pictures do
/// not have (ITU-T H.264 §7.4.1.2.3, H.265 §7.4.2.4.4). Their lengths lead right to it, as other
/// data does once in some billion times; prefixes of less than four bytes tell too little. Throws
/// DeviceError.
std::uint64_t startOfUnitsAhead(std::uint64_t from, std::uint64_t picture, const NALFormat& format,
                                const ByteSource& source);

/// Whether a sequence parameter set among the units from `start` up to `picture` describes pictures
/// of another size or bit depth than those of `known` that have its number: then the picture is
/// another recording's. Throws DeviceError.
bool describeOthers(std::uint64_t start, std::uint64_t picture, const NALFormat& format,
                    const ParameterSets& known, const ByteSource& source);

}  // namespace tallowmark
