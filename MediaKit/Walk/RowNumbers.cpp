// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/RowNumbers.h"

#include <algorithm>

namespace tallowmark {

// Both numbers are counted modulo a power of two (H.264 §7.4.3, H.265 §7.4.7.1).
std::optional<RowNumbers::Step> RowNumbers::stepOf(const SliceHeader& before,
                                                   const SliceHeader& slice) const {
  const SequenceParameters* sps = evidence_.parameterSets().sequenceOf(slice.pictureSet);
  if (sps == nullptr || (slice.resetsOrder && !before.resetsOrder)) {
    return std::nullopt;
  }
  const auto low = [](std::uint32_t number, unsigned bits) {
    return bits < 32 ? number & ((1U << bits) - 1) : number;
  };
  return Step{low(slice.frameNumber - before.frameNumber, sps->frameNumBits),
              low(slice.order.value_or(0) - before.order.value_or(0), sps->orderBits)};
}

void RowNumbers::add(const SliceHeader& slice, bool isOther) {
  if (row_ == 0) {
    return;
  }
  if (last_.size() == row_) {
    Steps& steps = steps_.at(isOther ? 1 : 0);
    if (const auto step = stepOf(last_.front(), slice)) {
      steps.isSteady = steps.isSteady && *step == steps.usual.value_or(*step);
      steps.usual = step;
      ++steps.count;
      keysTogether_ += slice.resetsOrder ? 1 : 0;
    }
    last_.pop_front();
  }
  last_.push_back(slice);
}

bool RowNumbers::areKnown() const {
  return !areUnsteady() && steps_.front().count > 0 && steps_.back().count > 0;
}

bool RowNumbers::areProven() const {
  constexpr std::uint64_t some = 40;
  // Some seconds: cameras set key pictures every second or two.
  constexpr std::uint64_t many = 90;
  const std::uint64_t count = std::min(steps_.front().count, steps_.back().count);
  return areKnown() && count >= (keysTogether_ > 1 ? some : many);
}

bool RowNumbers::agreeWith(const RowNumbers& others) const {
  return std::equal(steps_.begin(), steps_.end(), others.steps_.begin(),
                    [](const Steps& own, const Steps& other) {
                      return own.count == 0 || !other.isSteady ||
                             (own.isSteady && own.usual == other.usual);
                    });
}

double RowNumbers::bits(const SliceHeader& before, const SliceHeader& slice, bool isOther) const {
  constexpr double against = -6;
  const Steps& steps = steps_.at(isOther ? 1 : 0);
  if (!areKnown() || !steps.isSteady) {
    return 0;
  }
  const auto step = stepOf(before, slice);
  return step && step != steps.usual ? against : 0;
}

}  // namespace tallowmark
