// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <sys/stat.h>

#include <ctime>

namespace tallowmark {

/// The time a file was last written, to the nanosecond; the systems name the field differently.
timespec modificationTimeOf(const struct stat& status);

}  // namespace tallowmark
