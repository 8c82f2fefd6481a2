// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <string>

namespace tallowmark {

/// What was done to a file that is saved beside or apart from its original.
enum class SavedAs { repaired, rescued, joined };

/// The `attempt`-th file name (from 1) for a copy of `original`: "clip (repaired).mp4", then
/// "clip (repaired 2).mp4" and so on. Copies keep the original's extension, "mov" where it has
/// none; pictures rescued from RAW files are "jpg". The stem is shortened, between characters,
/// where the name would be longer than file systems take. Fit for PendingFile::publish.
std::string savedName(const std::filesystem::path& original, SavedAs how, unsigned attempt);

}  // namespace tallowmark
