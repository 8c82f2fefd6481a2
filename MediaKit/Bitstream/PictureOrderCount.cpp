// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/PictureOrderCount.h"

#include <numeric>

namespace tallowmark {

namespace {

// Whether later counts are predicted from this picture's: in H.264 from every reference picture, in
// HEVC from those of the lowest temporal layer that are neither leading pictures nor unused for
// reference within their layer (§8.3.1, prevTid0Pic).
bool isPredictedFrom(const SliceHeader& slice, std::uint16_t header, NALFormat::Codec codec) {
  if (codec == NALFormat::Codec::h264) {
    return slice.isReference;
  }
  const int type = (header >> 9) & 63;
  const bool lowestLayer = (header & 7) == 1;
  const bool leading = type >= 6 && type <= 9;
  return lowestLayer && !leading && slice.isReference;
}

}  // namespace

std::int64_t PictureOrderCount::next(const SliceHeader& slice, std::uint16_t header,
                                     const SequenceParameters& sps, bool isBehindLoss) {
  if (slice.resetsOrder) {
    base_ = 0;
    numberOffset_ = 0;
    lastNumber_ = 0;
  }
  if (codec_ == NALFormat::Codec::hevc || sps.orderType == 0) {
    return fromLowBits(slice, sps, isPredictedFrom(slice, header, codec_), isBehindLoss);
  }
  if (sps.orderType == 1) {
    return fromCycle(slice, sps);
  }
  // Output in decoding order (§8.2.1.3).
  return 2 * frameNumber(slice, sps) - (slice.isReference ? 0 : 1);
}

std::int64_t PictureOrderCount::fromLowBits(const SliceHeader& slice, const SequenceParameters& sps,
                                            bool predicts, bool isBehindLoss) {
  const std::int64_t wrap = std::int64_t{1} << sps.orderBits;
  const std::int64_t low = slice.order.value_or(0);
  std::int64_t count = base_ - (base_ & (wrap - 1)) + low;
  // The nearest (§8.2.1.1), but of no more than a few pictures back where many may be gone.
  const std::int64_t back = isBehindLoss ? wrap / 4 : wrap / 2;
  if (base_ - count >= back) {
    count += wrap;
  } else if (count - base_ > wrap - back) {
    count -= wrap;
  }
  if (predicts) {
    base_ = count;
  }
  return count;
}

std::int64_t PictureOrderCount::frameNumber(const SliceHeader& slice,
                                            const SequenceParameters& sps) {
  if (slice.frameNumber < lastNumber_) {
    numberOffset_ += std::int64_t{1} << sps.frameNumBits;
  }
  lastNumber_ = slice.frameNumber;
  return numberOffset_ + slice.frameNumber;
}

// §8.2.1.2
std::int64_t PictureOrderCount::fromCycle(const SliceHeader& slice, const SequenceParameters& sps) {
  const auto& offsets = sps.orderCycle.offsetsForReferences;
  const auto length = static_cast<std::int64_t>(offsets.size());
  std::int64_t number = length == 0 ? 0 : frameNumber(slice, sps);
  if (!slice.isReference && number > 0) {
    --number;
  }
  std::int64_t expected = 0;
  if (number > 0) {
    const std::int64_t cycle = std::accumulate(offsets.begin(), offsets.end(), std::int64_t{0});
    expected = (number - 1) / length * cycle +
               std::accumulate(offsets.begin(), offsets.begin() + (number - 1) % length + 1,
                               std::int64_t{0});
  }
  if (!slice.isReference) {
    expected += sps.orderCycle.offsetForNonReference;
  }
  return expected + slice.orderCorrection;
}

}  // namespace tallowmark
