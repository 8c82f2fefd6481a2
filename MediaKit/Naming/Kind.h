// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>

namespace tallowmark {

/// What a file is taken for; decides who checks and repairs it.
enum class Kind { video, photo, raw };

/// The kind by the file name's extension, whatever its case; nothing for extensions that the
/// program does not take.
std::optional<Kind> kindOf(const std::filesystem::path& file);

/// The extensions, in lower case, of the files that are taken for that kind.
const std::set<std::string>& extensionsOf(Kind kind);

/// The extension without its dot, in lower case where it is ASCII; empty when there is none.
std::string lowerCaseExtension(const std::filesystem::path& file);

}  // namespace tallowmark
