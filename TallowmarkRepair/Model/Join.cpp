// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Model/Join.h"

namespace tallowmark {

std::string Join::title() const {
  if (parts.empty()) {
    return {};
  }
  const std::string first = parts.front().stem().string();
  return parts.size() == 1 ? first : first + " – " + parts.back().stem().string();
}

}  // namespace tallowmark
