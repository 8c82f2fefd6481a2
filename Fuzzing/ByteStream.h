// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

/// The units of a byte stream between its start codes (H.264 Annex B), so that seeds are what any
/// encoder writes.
inline std::vector<std::span<const std::uint8_t>> unitsOf(std::span<const std::uint8_t> stream) {
  std::vector<std::span<const std::uint8_t>> units;
  std::size_t from = 0;
  for (std::size_t at = 0; at + 3 <= stream.size(); ++at) {
    if (stream[at] == 0 && stream[at + 1] == 0 && stream[at + 2] == 1) {
      units.push_back(stream.subspan(from, at - from));
      from = at + 3;
      at += 2;
    }
  }
  units.push_back(stream.subspan(from));
  return units;
}
