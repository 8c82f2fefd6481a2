// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/SpaceSetAside.h"

#include <algorithm>
#include <span>
#include <vector>

namespace tallowmark {

namespace {

constexpr std::size_t sector = 512;
constexpr std::size_t pieceSize = std::size_t{256} << 10U;
// No sound goes on further behind the last picture.
constexpr std::uint64_t farthest = std::uint64_t{64} << 20U;

bool isUnwritten(std::span<const std::uint8_t> bytes) {
  const std::uint8_t first = bytes.front();
  return (first == 0 || first == 0xFF) &&
         std::all_of(bytes.begin(), bytes.end(), [&](std::uint8_t byte) { return byte == first; });
}

}  // namespace

std::uint64_t spaceSetAsideIn(const ByteRange& stretch, std::uint64_t longest,
                              const ByteSource& source) {
  const std::uint64_t to = stretch.lower + std::min(stretch.length(), farthest + longest);
  std::vector<std::uint8_t> piece(pieceSize);
  std::uint64_t start = stretch.lower;
  for (std::uint64_t at = stretch.lower; at < to && start + longest < to;) {
    const auto wanted = std::min<std::uint64_t>(pieceSize, to - at);
    const std::size_t got =
        source.readInto(at, std::span(piece).first(static_cast<std::size_t>(wanted)));
    if (got == 0) {
      break;
    }
    for (std::size_t i = 0; i < got; i += sector) {
      const std::size_t end = std::min(got, i + sector);
      if (!isUnwritten(std::span(piece).subspan(i, end - i))) {
        start = at + end;
      } else if (at + end - start > longest) {
        return start;
      }
    }
    at += got;
  }
  return stretch.upper;
}

}  // namespace tallowmark
