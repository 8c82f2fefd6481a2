// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace tallowmark {

/// Position of the first three bytes 00 00 00, 00 00 01 or 00 00 02, which never stand inside a
/// unit: encoders put a 03 between (H.264 §7.4.1, H.265 §7.4.2). Nothing when there are none.
std::optional<std::size_t> findForbiddenStretch(std::span<const std::uint8_t> bytes);

}  // namespace tallowmark
