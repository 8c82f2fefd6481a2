// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/ReferenceWindow.h"

#include <algorithm>

namespace tallowmark {

// Behind the last reference picture's by less than a round.
std::int64_t ReferenceWindow::unwrapped(std::int64_t number) const {
  return last_ + ((number - last_) % wrap_ + wrap_) % wrap_;
}

bool ReferenceWindow::drop(std::int64_t number) {
  const auto found = std::find_if(kept_.begin(), kept_.end(),
                                  [&](const Kept& kept) { return kept.number == number; });
  if (found == kept_.end()) {
    return false;
  }
  kept_.erase(found);
  return true;
}

// §8.2.4.3.1: each step leads from the picture that the one before led to.
bool ReferenceWindow::hasAll(std::int64_t number,
                             const std::vector<ReferenceOperation>& modifications) const {
  std::int64_t predicted = number;
  return std::all_of(
      modifications.begin(), modifications.end(), [&](const ReferenceOperation& step) {
        const auto distance = static_cast<std::int64_t>(step.distance);
        predicted += step.code == 0 ? -distance : distance;
        // Counting is round, and all pictures kept lie behind this one.
        const std::int64_t back = ((number - predicted) % wrap_ + wrap_) % wrap_;
        predicted = number - back;
        return step.code > 1 || std::any_of(kept_.begin(), kept_.end(), [&](const Kept& kept) {
                 return kept.number == predicted;
               });
      });
}

// What an encoder makes a B picture for.
bool ReferenceWindow::hasBothSides(std::int64_t order) const {
  const auto isBefore = [&](const Kept& kept) { return kept.order < order; };
  return std::any_of(kept_.begin(), kept_.end(), isBefore) &&
         !std::all_of(kept_.begin(), kept_.end(), isBefore);
}

bool ReferenceWindow::hasAll(const WholeSliceHeader& header, std::int64_t order) const {
  const std::int64_t number = unwrapped(header.start.frameNumber);
  for (std::size_t list = 0; list < header.references.size(); ++list) {
    const auto& modifications = header.modifications.at(list);
    // Encoders that weigh a picture in several ways put it into the list as often.
    if (header.references.at(list) > kept_.size() + modifications.size() ||
        !hasAll(number, modifications)) {
      return false;
    }
  }
  return header.references.back() == 0 || hasBothSides(order);
}

// §8.2.5.3, §8.2.5.4
bool ReferenceWindow::mark(const WholeSliceHeader& header, const Kept& picture) {
  constexpr std::uint32_t forgetOne = 1;
  constexpr std::uint32_t forgetAll = 5;
  bool fits = true;
  for (const ReferenceOperation& operation : header.markings) {
    if (operation.code == forgetOne) {
      fits = drop(picture.number - static_cast<std::int64_t>(operation.distance)) && fits;
    } else {
      // Long-term pictures are not followed, and an encoder that forgets all counts anew.
      isKnown_ = false;
      kept_.clear();
      return operation.code == forgetAll || fits;
    }
  }
  if (most_ == 0) {
    return fits;
  }
  if (kept_.size() >= most_) {
    fits = header.markings.empty() && fits;
    kept_.erase(kept_.begin());
  }
  kept_.push_back(picture);
  return fits;
}

void ReferenceWindow::take(const WholeSliceHeader& header, std::int64_t order) {
  if (header.start.resetsOrder) {
    kept_.clear();
    last_ = 0;
    isKnown_ = true;
  }
  if (!isKnown_) {
    return;
  }
  const std::int64_t number = unwrapped(header.start.frameNumber);
  if (number > last_ + 1) {
    isKnown_ = false;  // a number left out is a picture lost
    return;
  }
  ++asked_;
  bool fits = hasAll(header, order);
  if (header.start.isReference) {
    last_ = number;
    fits = mark(header, {number, order}) && fits;
  }
  contradicting_ += fits ? 0 : 1;
}

}  // namespace tallowmark
