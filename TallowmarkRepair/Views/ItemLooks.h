// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>

#include "TallowmarkRepair/Model/Clip.h"
#include "TallowmarkRepair/Model/Join.h"
#include "TallowmarkUI/BrandColors.h"
#include "TallowmarkUI/Symbol.h"

namespace tallowmark {

/// How a row shows a state at a glance, beside its words.
struct ItemLooks {
  Symbol symbol = Symbol::unknown;
  Tone tone = Tone::quiet;
  /// From 0 to 1 while work on it is under way.
  std::optional<double> fraction;

  static ItemLooks of(const Clip& clip);
  static ItemLooks of(const Join& join);
};

}  // namespace tallowmark
