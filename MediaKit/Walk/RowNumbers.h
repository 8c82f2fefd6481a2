// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>

#include "MediaKit/Bitstream/SliceHeader.h"
#include "MediaKit/Walk/StreamEvidence.h"

namespace tallowmark {

/// How two video tracks that take turns in rows of as many pictures are numbered against each
/// other. Where both begin to count at once, there is another step from a picture of the first to
/// the one that stands a row behind it than from that to the next of the first. With B pictures
/// only one of these is always the same.
class RowNumbers {
 public:
  /// `row` pictures in each, numbered as `evidence` says, which must outlive it; 0 where the
  /// tracks' rows differ: then nothing is learnt.
  RowNumbers(std::size_t row, const StreamEvidence& evidence) : row_(row), evidence_(evidence) {}

  std::size_t row() const { return row_; }

  /// The next picture of the file, whose track is known beyond doubt.
  void add(const SliceHeader& slice, bool isOther);
  /// Something is missing, or in doubt, ahead of the next one.
  void forget() { last_.clear(); }

  /// There were steps to both tracks' pictures, always the same to those of one at least.
  bool areKnown() const;
  /// There were others each time.
  bool areUnsteady() const { return !steps_.front().isSteady && !steps_.back().isSteady; }
  /// They are known from many pictures, behind key pictures as well.
  bool areProven() const;

  /// Nothing here contradicts the steps of another clip of the camera.
  bool agreeWith(const RowNumbers& others) const;

  /// Bits in favour of `slice` as that track's, where `before` is the picture a row ahead of it; 0
  /// where steps are not known.
  double bits(const SliceHeader& before, const SliceHeader& slice, bool isOther) const;

 private:
  /// In frame numbers and in picture order.
  using Step = std::pair<std::uint32_t, std::uint32_t>;
  /// Nothing where a track begins to count anew.
  std::optional<Step> stepOf(const SliceHeader& before, const SliceHeader& slice) const;

  const std::size_t row_;
  const StreamEvidence& evidence_;
  std::deque<SliceHeader> last_;
  struct Steps {
    std::optional<Step> usual;
    bool isSteady = true;
    std::uint64_t count = 0;
  };
  /// To this track's pictures, and to the other's.
  std::array<Steps, 2> steps_;
  /// Pictures at which both began to count anew.
  std::uint64_t keysTogether_ = 0;
};

}  // namespace tallowmark
