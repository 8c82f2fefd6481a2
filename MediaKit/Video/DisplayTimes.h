// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "MediaKit/Container/SampleList.h"

namespace tallowmark::VideoRepair {

/// When pictures are decoded and shown, in ticks, in the order in which they are stored
/// (ISO/IEC 14496-12 §8.6.1).
struct DisplayTimes {
  std::vector<std::int64_t> decoded;
  std::vector<std::int64_t> shown;

  /// Those of a track's first thousand pictures.
  static DisplayTimes of(const SampleList& pictures);

  void add(std::int64_t time, std::int32_t compositionOffset) {
    decoded.push_back(time);
    shown.push_back(time + compositionOffset);
  }
  void clear() { *this = DisplayTimes(); }

  /// When the first of them is shown; others may be shown ahead of the first that is stored. 0
  /// without pictures.
  std::int64_t first() const;
  /// How long after its decoding a picture would be shown, were they stored in that order.
  std::int64_t delay() const;

  /// `pictures`, as many as these, in this order: shown one after the other at the times at which
  /// they are decoded, so much later.
  SampleList inOrder(const SampleList& pictures, std::int64_t delay) const;
};

/// The same pictures, shown so many ticks later after their decoding.
SampleList shownLater(const SampleList& pictures, std::int64_t ticks);

}  // namespace tallowmark::VideoRepair
