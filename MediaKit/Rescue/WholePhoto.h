// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "DeviceKit/ByteSource.h"

namespace tallowmark {

/// All bytes of a photo or RAW file. Throws DeviceError, and MediaError::unsupported for a file
/// that no camera makes a photo of: disk images are called ".raw", too.
std::vector<std::uint8_t> readWholePhoto(const ByteSource& photo);

}  // namespace tallowmark
