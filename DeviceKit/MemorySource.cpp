// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/MemorySource.h"

#include <algorithm>
#include <cstring>

namespace tallowmark {

std::string MemorySource::descriptionForReport() const {
  return "memory(" + std::to_string(data_.size()) + " bytes)";
}

std::size_t MemorySource::readInto(std::uint64_t offset, std::span<std::uint8_t> into) const {
  if (offset >= data_.size()) {
    return 0;
  }
  const auto from = static_cast<std::size_t>(offset);
  const std::size_t count = std::min(into.size(), data_.size() - from);
  if (count > 0) {
    std::memcpy(into.data(), data_.data() + from, count);
  }
  return count;
}

}  // namespace tallowmark
