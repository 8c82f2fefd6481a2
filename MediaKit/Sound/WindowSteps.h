// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>

#include "MediaKit/Sound/BlockWalk.h"

namespace tallowmark {

/// Follows the windows of blocks that are thought to be one track's. A long window that makes way
/// for short ones is followed by such, and these by the one that leads back (ISO/IEC 14496-3
/// §4.6.11.3.2): blocks of another track in between seldom fit.
class WindowSteps {
 public:
  void add(WindowSequence next);
  /// Those of other blocks, too.
  void add(const WindowSteps& others);
  /// Something is missing ahead of the next one.
  void forget() { follows_ = false; }

  /// There is a step that no track takes.
  bool areBroken() const { return broken_ > 0; }
  /// So many that the blocks cannot be one track's. Now and then one is misread.
  bool areImpossible() const { return broken_ >= 3 && broken_ * 5 >= changes_; }
  /// So many to and from short windows, and none broken, that the blocks must be one track's.
  bool areCertain() const { return broken_ == 0 && changes_ >= 6; }

 private:
  WindowSequence last_ = WindowSequence::onlyLong;
  bool follows_ = false;
  /// To or from other windows than the usual long one.
  std::uint64_t changes_ = 0;
  std::uint64_t broken_ = 0;
};

}  // namespace tallowmark
