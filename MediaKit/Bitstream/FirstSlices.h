// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/SampleList.h"

namespace tallowmark {

/// The beginnings of slices of an H.264 clip's first pictures.
struct FirstSlices {
  /// Some seconds of pictures, several sequences among them.
  static constexpr std::uint64_t enough = 400;

  using Bytes = std::vector<std::uint8_t>;
  /// A picture's first slice.
  struct Slice {
    /// From the unit's header on.
    Bytes bytes;
    /// Of the picture's next few.
    std::vector<Bytes> others;
    bool isBehindLoss = false;
  };
  /// None when a picture has no slice or brings parameter sets.
  std::vector<Slice> slices;
  /// Whether B pictures are weighed by distance, where the encoder put that into words.
  std::optional<bool> weighsB;

  /// `samples` are the pictures in decoding order, at their places in `source`; `losses` the
  /// numbers of those ahead of which something is missing. Throws DeviceError, Stopped.
  static FirstSlices read(const SampleList& samples, const ByteSource& source,
                          const NALFormat& format, std::span<const std::uint64_t> losses,
                          const StopToken& stop);
};

}  // namespace tallowmark
