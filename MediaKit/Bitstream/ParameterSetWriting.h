// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Bitstream/ParameterSets.h"

namespace tallowmark {

/// A parameter set unit with other numbers where `where` says; everything else stays.
std::vector<std::uint8_t> withNumbers(std::span<const std::uint8_t> unit, NALFormat::Codec codec,
                                      const CodedNumbers& where,
                                      std::span<const std::uint32_t> numbers);

/// The same with `count` other bits from `firstBit` of the payload on.
std::vector<std::uint8_t> withBits(std::span<const std::uint8_t> unit, NALFormat::Codec codec,
                                   std::size_t firstBit, unsigned count, std::uint32_t value);

/// What takes a parameter set's place; nothing to leave it as it is.
using ParameterSetChange =
    std::function<std::optional<std::vector<std::uint8_t>>(std::span<const std::uint8_t> unit)>;

/// A sample entry whose parameter sets `change` was asked to change. What cannot be read stays byte
/// for byte, and so do sets larger than any that cameras write.
std::vector<std::uint8_t> withParameterSets(std::span<const std::uint8_t> sampleEntry,
                                            NALFormat::Codec codec,
                                            const ParameterSetChange& change);

}  // namespace tallowmark
