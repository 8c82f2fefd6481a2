// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "ImageKit/LibraryImageService.h"

namespace tallowmark::testing {

/// What is tested here.
inline const LibraryImageService images;

}  // namespace tallowmark::testing
