// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "MediaKit/Photo/JPEGRepair.h"

namespace tallowmark::JPEGRepair {

/// Whether what a rebuilt photo borrowed can be true: its data decodes with the borrowed tables to
/// the end, fills the borrowed size, lines up in rows of the borrowed width, and is no brighter
/// than the borrowed quantization allows. True when nothing was borrowed, and when the coding
/// process is none that can be judged here.
bool borrowedPartsFit(const Repaired& repaired);

/// Whether one brightness a unit, in reading order, makes a picture of rows of `across` units. In a
/// picture every unit resembles the one above it; with a wrong width that is not so, and with some
/// other width it is.
bool linesUp(std::span<const std::int16_t> brightness, std::size_t across);

}  // namespace tallowmark::JPEGRepair
