// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "MediaKit/Bitstream/ParameterSets.h"

namespace tallowmark {

/// The start of a slice header, as far as picture order (H.264 §7.3.3, H.265 §7.3.6.1).
struct SliceHeader {
  bool firstInPicture = false;
  /// HEVC: belongs to the slice segment before it and repeats nothing.
  bool dependent = false;
  /// slice_type; H.264's 5 to 9 are told apart from 0 to 4.
  std::uint32_t type = 0;
  std::uint32_t pictureSet = 0;
  /// The picture is kept for others to refer to.
  bool isReference = true;
  /// All pictures after it can be decoded without those before (H.264 IDR, HEVC IDR and BLA).
  bool resetsOrder = false;
  /// H.264 only.
  std::uint32_t frameNumber = 0;
  bool isField = false;
  bool isBottomField = false;
  /// Low bits of the picture order count; absent where the stream does not carry them.
  std::optional<std::uint32_t> order;
  /// H.264 with order type 1: how far the picture stands from where it is expected.
  std::int32_t orderCorrection = 0;
  /// Bits of the header that were read.
  std::size_t bitsRead = 0;
};

/// Whether the slice refers to no other picture (H.264 Table 7-6, H.265 Table 7-7).
constexpr bool isIntra(const SliceHeader& slice) {
  return slice.type % 5 == 2;
}

/// Reads the header of a slice unit (header bytes first, no length prefix; the first few dozen
/// bytes suffice). Nothing when it contradicts the standard or names parameter sets that are not
/// known.
std::optional<SliceHeader> readSliceHeader(std::span<const std::uint8_t> unit,
                                           const ParameterSets& sets, NALFormat::Codec codec);

}  // namespace tallowmark
