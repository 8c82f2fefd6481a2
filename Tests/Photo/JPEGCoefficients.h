// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace tallowmark {

/// The quantized coefficients of a JPEG and the tables that scale them: what a decoder starts from.
/// Two files with equal ones show the same picture in every decoder.
struct Coefficients {
  struct Plane {
    std::size_t blocksAcross = 0;
    std::vector<std::int16_t> values;  // 64 a block
    std::vector<std::uint16_t> steps;
    friend bool operator==(const Plane&, const Plane&) = default;
  };
  unsigned width = 0;
  unsigned height = 0;
  std::vector<Plane> planes;
  friend bool operator==(const Coefficients&, const Coefficients&) = default;
};

/// Empty when libjpeg fails; damage that it only warns of is decoded as it does.
Coefficients readCoefficients(std::span<const std::uint8_t> jpeg);

/// The share of the rows of blocks, from the top, that are the same in every plane.
double equalTopShare(const Coefficients& a, const Coefficients& b);

}  // namespace tallowmark
