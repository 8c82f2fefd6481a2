// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/StoppableSource.h"

#include <algorithm>

namespace tallowmark {

namespace {
// A worn card gives a few megabytes a second.
constexpr std::size_t largestPiece = std::size_t{1} << 20U;
}  // namespace

std::size_t StoppableSource::readInto(std::uint64_t offset, std::span<std::uint8_t> into) const {
  std::size_t done = 0;
  do {
    stop_.check();
    const auto piece = into.subspan(done, std::min(into.size() - done, largestPiece));
    const std::size_t got = source_->readInto(offset + done, piece);
    done += got;
    if (got < piece.size()) {
      break;
    }
  } while (done < into.size());
  return done;
}

}  // namespace tallowmark
