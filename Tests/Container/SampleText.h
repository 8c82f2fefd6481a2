// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

#include "MediaKit/Container/SampleList.h"

namespace tallowmark::testing {

/// A list as one line: "offset+size/duration", "@" and the composition offset unless 0, "K" for a
/// key sample, parted by blanks.
inline std::string textOf(const SampleList& samples) {
  std::string all;
  for (const Sample& s : samples) {
    if (!all.empty()) all += ' ';
    all +=
        std::to_string(s.offset) + '+' + std::to_string(s.size) + '/' + std::to_string(s.duration);
    if (s.compositionOffset != 0) all += '@' + std::to_string(s.compositionOffset);
    if (s.isSync) all += 'K';
  }
  return all;
}

}  // namespace tallowmark::testing
