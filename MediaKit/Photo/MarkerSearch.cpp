// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/MarkerSearch.h"

#include "MediaKit/Photo/JPEGMarkers.h"

namespace tallowmark {
namespace {

// Whole blocks are tested without branches, which compilers turn into vector code; only a block
// that holds a hit is looked at byte by byte.
constexpr std::size_t blockSize = 256;

template <std::size_t Reach, typename Match>
std::size_t findFirst(ByteView data, std::size_t from, Match match) {
  const std::uint8_t* const bytes = data.data();
  const std::size_t size = data.size();
  std::size_t at = from;
  while (at <= size && size - at >= blockSize + Reach) {
    unsigned hit = 0;
    for (std::size_t i = 0; i < blockSize; ++i) {
      hit |= static_cast<unsigned>(match(bytes + at + i));
    }
    if (hit != 0) {
      break;
    }
    at += blockSize;
  }
  for (; at <= size && size - at > Reach; ++at) {
    if (match(bytes + at)) {
      return at;
    }
  }
  return size;
}

}  // namespace

std::size_t findMarker(ByteView data, std::size_t from, std::uint8_t code) {
  return findFirst<1>(data, from,
                      [code](const std::uint8_t* p) { return (p[0] == 0xFF) & (p[1] == code); });
}

std::size_t findStartOfImage(ByteView data, std::size_t from) {
  return findFirst<2>(data, from, [](const std::uint8_t* p) {
    return (p[0] == 0xFF) & (p[1] == JPEGMarker::startOfImage) & (p[2] == 0xFF);
  });
}

std::size_t findMarkerBackwards(ByteView data, std::size_t before, std::uint8_t code) {
  for (std::size_t at = before; at >= 2; --at) {
    if (data[at - 2] == 0xFF && data[at - 1] == code) {
      return at - 2;
    }
  }
  return before;
}

std::size_t findScanInterruption(ByteView data, std::size_t from) {
  return findFirst<1>(data, from, [](const std::uint8_t* p) {
    return (p[0] == 0xFF) & (p[1] != 0) & ((p[1] & 0xF8U) != 0xD0U);
  });
}

}  // namespace tallowmark
