// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Bitstream/SliceHeader.h"

namespace tallowmark {

/// Counts pictures in output order from what their slice headers say, one after the other in
/// decoding order (H.264 §8.2.1, H.265 §8.3.1). Counts compare within one coded video sequence,
/// which an IDR or BLA picture begins.
class PictureOrderCount {
 public:
  explicit PictureOrderCount(NALFormat::Codec codec) : codec_(codec) {}

  /// The count of the picture whose first slice this is, `header` being that unit's header.
  /// `isBehindLoss`: pictures ahead of it may be missing, so that counts went on rather than back.
  std::int64_t next(const SliceHeader& slice, std::uint16_t header, const SequenceParameters& sps,
                    bool isBehindLoss = false);

 private:
  std::int64_t fromLowBits(const SliceHeader& slice, const SequenceParameters& sps, bool predicts,
                           bool isBehindLoss);
  std::int64_t fromCycle(const SliceHeader& slice, const SequenceParameters& sps);
  std::int64_t frameNumber(const SliceHeader& slice, const SequenceParameters& sps);

  NALFormat::Codec codec_;
  // The count that the next high bits follow from.
  std::int64_t base_ = 0;
  // H.264 order types 1 and 2: frame numbers without their wrapping round.
  std::int64_t numberOffset_ = 0;
  std::uint32_t lastNumber_ = 0;
};

}  // namespace tallowmark
