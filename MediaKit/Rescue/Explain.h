// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <exception>
#include <string>

namespace tallowmark {

/// The sentence the user reads when repairing a file failed with `error`.
std::string explain(const std::exception& error, bool referenceUsed);

}  // namespace tallowmark
