// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/FileIdentity.h"
#include "DeviceKit/StopToken.h"

namespace tallowmark {

/// One of the user's files, open for reading, and what it was when it was opened.
struct OpenedFile {
  std::unique_ptr<const ByteSource> bytes;
  FileIdentity identity;
};

/// How files are opened. Throws DeviceError. Tests put worn media in the place of openFile.
using FileOpener = std::function<OpenedFile(const std::filesystem::path&)>;

/// A FileSource.
OpenedFile openFile(const std::filesystem::path& file);

/// Files whose reads throw Stopped once a stop is requested.
FileOpener stoppable(FileOpener open, StopToken stop);

/// Throws MediaError::unsupported with a sentence when the file was written to since it was opened:
/// what was read of it may then be of two minds.
void requireUnchanged(const OpenedFile& file, const std::filesystem::path& name);

}  // namespace tallowmark
