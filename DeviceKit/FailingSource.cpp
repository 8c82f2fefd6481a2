// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/FailingSource.h"

#include <algorithm>

#include "DeviceKit/DeviceError.h"

namespace tallowmark {

std::size_t FailingSource::readInto(std::uint64_t offset, std::span<std::uint8_t> into) const {
  if (offset >= data_.size()) {
    return 0;
  }
  const std::uint64_t end = offset + std::min<std::uint64_t>(into.size(), data_.size() - offset);
  for (const Hole& hole : holes_) {
    if (const std::uint64_t bad = std::max(hole.lower, offset); bad < std::min(hole.upper, end)) {
      throw DeviceError::readFailed(bad, errorNumber_);
    }
  }
  std::copy(data_.begin() + static_cast<std::ptrdiff_t>(offset),
            data_.begin() + static_cast<std::ptrdiff_t>(end), into.begin());
  return static_cast<std::size_t>(end - offset);
}

}  // namespace tallowmark
