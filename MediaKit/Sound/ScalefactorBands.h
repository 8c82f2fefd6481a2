// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "MediaKit/Sound/AACConfig.h"

namespace tallowmark {

/// Where the scalefactor bands of a window start (ISO/IEC 14496-3 §4.5.4): the first spectral
/// coefficient of each, then the end of the last.
struct ScalefactorBands {
  std::vector<std::uint16_t> longWindow;
  std::vector<std::uint16_t> shortWindow;

  static ScalefactorBands of(const AACConfig& config);
};

}  // namespace tallowmark
