// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/ByteSource.h"

#include <algorithm>

namespace tallowmark {

std::vector<std::uint8_t> ByteSource::read(std::uint64_t offset, std::size_t count) const {
  const std::uint64_t total = size();
  if (offset >= total) {
    return {};
  }
  std::vector<std::uint8_t> bytes(
      static_cast<std::size_t>(std::min<std::uint64_t>(total - offset, count)));
  bytes.resize(readInto(offset, bytes));
  return bytes;
}

}  // namespace tallowmark
