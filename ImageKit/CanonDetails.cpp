// SPDX-License-Identifier: GPL-3.0-or-later
#include "ImageKit/CanonDetails.h"

#include <algorithm>
#include <array>
#include <exception>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Container/Box.h"

namespace tallowmark {
namespace {

constexpr std::size_t typeSize = 16;
constexpr std::array<std::uint8_t, typeSize> canonBox{
    0x85, 0xC0, 0xB6, 0x87, 0x82, 0x0F, 0x11, 0xE0, 0x81, 0x11, 0xF4, 0xCE, 0x46, 0x2B, 0x6A, 0x48};

// The details stand before any picture; media behind them need not be held.
constexpr std::size_t bytesToRead = std::size_t{4} << 20U;

bool isCanonRAW(ByteView image) {
  constexpr std::array<std::uint8_t, 8> brand{'f', 't', 'y', 'p', 'c', 'r', 'x', ' '};
  return image.size() >= 12 && std::equal(brand.begin(), brand.end(), image.begin() + 4);
}

void takeDetails(const Box& box, const BoxReader& reader, CanonDetails& details) {
  if (box.truncated) {
    return;
  }
  if (box.type == FourCC("CMT1")) {
    details.tiff = reader.payload(box);
  }
  if (box.type == FourCC("CMT2")) {
    details.exif = reader.payload(box);
  }
  if (box.type == FourCC("CMT4")) {
    details.gps = reader.payload(box);
  }
}

}  // namespace

std::optional<CanonDetails> canonDetails(ByteView image) {
  if (!isCanonRAW(image)) {
    return std::nullopt;
  }
  const ByteView start = image.first(std::min(image.size(), bytesToRead));
  const MemorySource source({start.begin(), start.end()});
  const BoxReader reader(source);
  CanonDetails details;
  for (const Box& movie : reader.children(0, source.size())) {
    if (movie.type != FourCC("moov")) {
      continue;
    }
    for (const Box& box : reader.children(movie, 0)) {
      const auto type = source.read(box.payloadOffset(), typeSize);
      if (box.type != FourCC("uuid") || !std::ranges::equal(type, canonBox)) {
        continue;
      }
      for (const Box& inner : reader.children(box, typeSize)) {
        takeDetails(inner, reader, details);
      }
    }
  }
  return details;
}

}  // namespace tallowmark
