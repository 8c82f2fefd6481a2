// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>

#include "MediaKit/Naming/Kind.h"

namespace tallowmark {

/// Makes sure that a file the user picked can serve as a reference, and returns its kind. Throws
/// MediaError::unsupported with a sentence that says what to pick instead.
Kind requireReference(const std::filesystem::path& file);

}  // namespace tallowmark
