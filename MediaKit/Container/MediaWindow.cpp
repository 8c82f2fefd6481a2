// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/MediaWindow.h"

#include <algorithm>
#include <cstring>

namespace tallowmark {

std::span<const std::uint8_t> MediaWindow::at(std::uint64_t offset, std::size_t count) {
  if (offset >= end_) {
    return {};
  }
  const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, end_ - offset));
  const bool inside = offset >= start_ && offset <= start_ + held_;
  const std::size_t skipped = inside ? static_cast<std::size_t>(offset - start_) : held_;
  if (holds(offset, wanted)) {
    return std::span<const std::uint8_t>(buffer_).subspan(skipped, held_ - skipped);
  }
  next_ = inside ? std::min(next_ * 2, readAhead_.most) : readAhead_.first;
  const std::uint64_t ahead =
      offset < aheadEnd_ ? std::min<std::uint64_t>(next_, aheadEnd_ - offset) : 0;
  const auto size = static_cast<std::size_t>(
      std::min<std::uint64_t>(std::max<std::uint64_t>(wanted, ahead), end_ - offset));
  if (buffer_.size() < size) {
    std::vector<std::uint8_t> larger(size);
    std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(skipped),
              buffer_.begin() + static_cast<std::ptrdiff_t>(held_), larger.begin());
    buffer_ = std::move(larger);
  } else if (held_ > skipped) {
    std::memmove(buffer_.data(), buffer_.data() + skipped, held_ - skipped);
  }
  held_ -= skipped;
  start_ = offset;
  held_ += source_.readInto(offset + held_, std::span(buffer_).subspan(held_, size - held_));
  return std::span<const std::uint8_t>(buffer_).first(held_);
}

}  // namespace tallowmark
