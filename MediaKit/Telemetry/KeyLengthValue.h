// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tallowmark {

/// Size in bytes of a tree of key-length-value items with its header, as its first eight bytes
/// claim it; nothing when they are not the head of a device's tree ("DEVC").
std::optional<std::size_t> claimedTreeSize(std::span<const std::uint8_t> head);

/// Whether `tree` is one device's telemetry from its first byte to its last: each item has a key of
/// four letters, a type, the size and number of its values (GPMF: 32-bit key, 8-bit type, 8-bit
/// size, 16-bit count, values padded to 32 bits), items nest, and each level ends exactly where the
/// one above says so.
bool isTelemetryTree(std::span<const std::uint8_t> tree);

}  // namespace tallowmark
