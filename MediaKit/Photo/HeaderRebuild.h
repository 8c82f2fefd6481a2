// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>

#include "MediaKit/Photo/JPEGRepair.h"

/// The part of the repair that assembles a new header; not for use beside JPEGRepair::repair.
namespace tallowmark::JPEGRepair {

/// As repair, for a photo without a usable header.
Repaired rebuildHeader(ByteView data, std::optional<ByteView> reference);

/// Whether what survived of the photo's own header does for its picture data.
bool headerSurvives(ByteView data);

}  // namespace tallowmark::JPEGRepair
