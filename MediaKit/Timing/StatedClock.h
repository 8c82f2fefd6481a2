// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark::VideoRepair {

/// The clocks that the parameter sets of a clip and of its reference state, in seconds to a tick.
/// Cameras count a tick or two to a picture; so of when one is shown nothing but their ratio tells.
struct StatedClocks {
  double clip = 0;
  double reference = 0;

  /// How much longer the clip's pictures last.
  double ratio() const { return clip / reference; }

  /// The clip's between its pictures, `reference`'s in its description or between its own. Nothing
  /// when one states none, or several. Throws DeviceError.
  static std::optional<StatedClocks> of(const SampleList& clip, const ByteSource& clipSource,
                                        const Track& reference, const ByteSource& referenceSource,
                                        const NALFormat& format);
};

}  // namespace tallowmark::VideoRepair
