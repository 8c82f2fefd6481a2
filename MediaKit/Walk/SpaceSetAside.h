// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

/// Where in a stretch space begins that a camera had set aside and not used: more than `longest`
/// bytes that are all zeros, or all ones as erased flash has them. To within 512 bytes; the
/// stretch's end where there is none. Throws DeviceError.
std::uint64_t spaceSetAsideIn(const ByteRange& stretch, std::uint64_t longest,
                              const ByteSource& source);

}  // namespace tallowmark
