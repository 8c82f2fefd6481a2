// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>

#include "MediaKit/Bitstream/SliceHeader.h"

namespace tallowmark {

/// How large a track's pictures are, by the kinds of their first slices. What was added long ago
/// fades.
class PictureSizes {
 public:
  void add(const SliceHeader& slice, std::uint64_t bytes);

  /// Pictures that were added, up to where they fade.
  double count() const;
  /// How usual a picture of this many bytes is, in bits; only the difference to what another
  /// track's sizes say of the same picture means anything.
  double bits(const SliceHeader& slice, std::uint64_t bytes) const;

 private:
  /// Of the logarithms of sizes.
  struct Moments {
    double count = 0;
    double sum = 0;
    double squares = 0;
  };
  /// By the slice's type and whether others refer to it.
  std::array<Moments, 6> kinds_{};
};

}  // namespace tallowmark
