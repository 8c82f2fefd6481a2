// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <functional>

#include "DeviceKit/FileSink.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Naming/SavedName.h"

namespace tallowmark {

/// A copy to be made.
struct NewCopy {
  /// Names the copy.
  std::filesystem::path original;
  SavedAs how = SavedAs::repaired;
  std::filesystem::path folder;
  /// The original's, which the copy gets.
  timespec modified{};
  /// Bytes it may take at most.
  std::uint64_t room = 0;
};

/// Has `write` fill the copy, and returns its path once it stands complete under a name that
/// replaces nothing; there is no partial file when it throws. Throws what `write` throws,
/// DeviceError, Stopped; MediaError::unsupported with a sentence when the folder has not the room.
std::filesystem::path writeCopy(const NewCopy& copy, const std::function<void(FileSink&)>& write,
                                const StopToken& stop);

}  // namespace tallowmark
