// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <utility>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Video/Teacher.h"
#include "MediaKit/Walk/EvidenceWalk.h"

namespace tallowmark::VideoRepair {

/// The progress of walks through one clip: each takes half of what those before left.
class WalkProgress {
 public:
  explicit WalkProgress(const Progress& progress) : progress_(progress) {}

  /// Of the next walk, which reports up to a half. This object must outlive it.
  Progress next() {
    const double from = std::exchange(done_, done_ + (1 - done_) / 2);
    return progress_ ? [this, from](double half) { progress_(from + half * (1 - from)); }
                     : Progress();
  }
  /// Where it stands once they are over.
  double done() const { return done_; }

 private:
  const Progress& progress_;
  double done_ = 0;
};

/// Walks a clip from a position on, and again as long as a walk teaches what the reference could
/// not: `teacher` learns from it. Throws the sources' errors, Stopped.
EvidencedFindings findMedia(const ByteSource& source, std::uint64_t from, Teacher& teacher,
                            WalkProgress& progress, const StopToken& stop);

}  // namespace tallowmark::VideoRepair
