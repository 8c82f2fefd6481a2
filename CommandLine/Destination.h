// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

namespace tallowmark {

/// Makes the folder that copies go to and clears away what a run left there that was killed.
/// Returns what is wrong with it as a sentence; empty when nothing is.
std::string prepareDestination(const std::filesystem::path& folder);

}  // namespace tallowmark
