// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>

#include "DeviceKit/BlockDevice.h"
#include "DeviceKit/StopToken.h"

/// Copying a card to a file before anything else is tried with it.
namespace tallowmark::CardImage {

/// What stands in an image.
struct Result {
  std::uint64_t size = 0;
  /// Bytes that could not be read: zeros in the image.
  std::uint64_t unreadableBytes = 0;
  /// The same in blocks of the card.
  std::uint64_t unreadableBlocks = 0;
  /// Bytes that runs before this one had read.
  std::uint64_t readBefore = 0;
};

/// Is told the bytes of the card that were tried.
using Progress = std::function<void(std::uint64_t tried)>;

/// How often the map is brought up to date while a copy runs: so much is read again when the power
/// fails.
inline constexpr std::chrono::seconds saveInterval{10};

/// Copies `card` to `file`, or goes on with the copy that is there: first what was not tried, in
/// long reads; then around what failed, block by block; then what failed in runs before. Whatever
/// ends it early, the image and its map (ImageFile) stand for the next run. Throws ImageError,
/// DeviceError, Stopped.
Result copy(const BlockDevice& card, const std::filesystem::path& file, const Progress& progress,
            const StopToken& stop);

}  // namespace tallowmark::CardImage
