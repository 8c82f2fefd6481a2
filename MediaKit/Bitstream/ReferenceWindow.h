// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "MediaKit/Bitstream/WholeSliceHeader.h"

namespace tallowmark {

/// The pictures that a decoder of H.264 frames keeps for others to refer to, when it keeps so many
/// at most (§8.2.4, §8.2.5; short-term ones). Pictures that ask for others than there are show that
/// the stream was coded for another number.
class ReferenceWindow {
 public:
  ReferenceWindow(std::uint32_t mostFrames, unsigned frameNumBits)
      : most_(mostFrames), wrap_(std::int64_t{1} << frameNumBits) {}

  /// Takes the next picture in decoding order in, by its first slice; `order` is when it is shown
  /// (PictureOrderCount).
  void take(const WholeSliceHeader& header, std::int64_t order);
  /// Pictures are missing ahead of the next one: nothing is known until a sequence begins.
  void noteLoss() { isKnown_ = false; }

  /// Pictures that were held against what is there, and those of them that did not fit.
  std::size_t asked() const { return asked_; }
  std::size_t contradicting() const { return contradicting_; }

 private:
  struct Kept {
    /// Not wrapped round.
    std::int64_t number = 0;
    std::int64_t order = 0;
  };
  bool hasAll(const WholeSliceHeader& header, std::int64_t order) const;
  bool hasAll(std::int64_t number, const std::vector<ReferenceOperation>& modifications) const;
  bool hasBothSides(std::int64_t order) const;
  bool mark(const WholeSliceHeader& header, const Kept& picture);
  bool drop(std::int64_t number);
  std::int64_t unwrapped(std::int64_t number) const;

  std::size_t most_;
  std::int64_t wrap_;
  /// From the oldest on.
  std::vector<Kept> kept_;
  std::int64_t last_ = 0;
  bool isKnown_ = false;
  std::size_t asked_ = 0;
  std::size_t contradicting_ = 0;
};

}  // namespace tallowmark
