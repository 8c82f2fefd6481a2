// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <deque>

#include "MediaKit/Container/MediaWindow.h"

namespace tallowmark {

/// Where bytes stand that cannot stand inside a NAL unit, found once, from the front on, and
/// remembered: thousands of overlapping questions about one stretch cost one pass over it.
class ForbiddenStretches {
 public:
  /// Reads through a window of its own; the source must outlive it.
  ForbiddenStretches(const ByteSource& source, std::uint64_t end);

  /// Whether forbidden bytes lie wholly inside [from, to). Throws DeviceError.
  bool anyIn(std::uint64_t from, std::uint64_t to);

  /// Forgets what lies before `offset`, which is not asked for again.
  void forgetBefore(std::uint64_t offset);

 private:
  // Forbidden bytes start at `first` and at `last`, and between them at least every `neighbourhood`
  // bytes.
  struct Cluster {
    std::uint64_t first;
    std::uint64_t last;
  };

  void lookUpTo(std::uint64_t to);
  bool findIn(std::uint64_t from, std::uint64_t to);

  MediaWindow window_;
  std::deque<Cluster> clusters_;
  std::uint64_t start_ = 0;
  std::uint64_t frontier_ = 0;
};

}  // namespace tallowmark
