// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/WindowSteps.h"

#include <utility>

namespace tallowmark {

void WindowSteps::add(WindowSequence next) {
  const WindowSequence last = std::exchange(last_, next);
  if (!std::exchange(follows_, true)) {
    return;
  }
  const bool becomesShort = last == WindowSequence::longStart || last == WindowSequence::eightShort;
  const bool wasShort = next == WindowSequence::eightShort || next == WindowSequence::longStop;
  changes_ += becomesShort || wasShort ? 1 : 0;
  broken_ += becomesShort != wasShort ? 1 : 0;
}

void WindowSteps::add(const WindowSteps& others) {
  changes_ += others.changes_;
  broken_ += others.broken_;
}

}  // namespace tallowmark
