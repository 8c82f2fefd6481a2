// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <optional>

#include "MediaKit/Container/ClipInfo.h"
#include "MediaKit/Naming/Kind.h"
#include "MediaKit/Rescue/OpenedFile.h"

namespace tallowmark {

/// A file that can serve as a reference.
struct ReferenceFile {
  Kind kind = Kind::video;
  /// Of clips.
  std::optional<ClipInfo> info;
};

/// Makes sure that a file the user picked can serve as a reference. Throws MediaError::unsupported
/// with a sentence that says what to pick instead.
ReferenceFile requireReference(const std::filesystem::path& file,
                               const FileOpener& open = openFile);

}  // namespace tallowmark
