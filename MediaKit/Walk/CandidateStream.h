// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <deque>

#include "MediaKit/Walk/FrameFinder.h"

namespace tallowmark {

/// Every position ahead at which a learnt frame could start, in order, found once and remembered:
/// the search, the look at what follows a candidate and the look inside it share one pass.
class CandidateStream {
 public:
  /// The finder must outlive the stream.
  explicit CandidateStream(FrameFinder& finder) : finder_(finder) {}

  /// The first candidate that starts at `from` or later and before `to`; null when there is none.
  /// Valid until the next call. Throws DeviceError.
  const FoundFrame* next(std::uint64_t from, std::uint64_t to);

  /// Forgets candidates before `offset`, which are not asked for again unless one goes back.
  void forgetBefore(std::uint64_t offset);

  /// Begins anew at `offset`, before what was forgotten.
  void goBackTo(std::uint64_t offset);

 private:
  FrameFinder& finder_;
  std::deque<FoundFrame> found_;
  std::uint64_t frontier_ = 0;
};

}  // namespace tallowmark
