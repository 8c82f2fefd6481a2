// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Bitstream/SliceHeader.h"

namespace tallowmark {

/// An operation on the pictures that others refer to, by how it is coded and how far back the
/// picture is that it names (H.264 §7.3.3.1, §7.3.3.3).
struct ReferenceOperation {
  std::uint32_t code = 0;
  std::uint32_t distance = 0;
};

/// A whole H.264 slice header (§7.3.3).
struct WholeSliceHeader {
  SliceHeader start;
  /// Pictures in lists 0 and 1, as far as the slice's type has them; whether the slice says so
  /// itself; and how the lists' beginnings are told.
  std::array<std::uint32_t, 2> references{};
  bool tellsReferences = false;
  std::array<std::vector<ReferenceOperation>, 2> modifications;
  /// What becomes of earlier pictures; without any the oldest goes when there are too many.
  std::vector<ReferenceOperation> markings;
};

/// Reads the header of a slice of a whole frame up to the slice's data; `unit` begins with the
/// unit's header and should hold some hundred bytes. Nothing when it contradicts the standard, does
/// not end as one or names parameter sets that are not known wholly. Behind it CABAC begins on a
/// whole byte, ones ahead of that, and CAVLC with the number of a block (§7.3.4).
std::optional<WholeSliceHeader> readWholeSliceHeader(std::span<const std::uint8_t> unit,
                                                     const ParameterSets& sets);

}  // namespace tallowmark
