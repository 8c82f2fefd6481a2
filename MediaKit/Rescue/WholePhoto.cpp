// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/WholePhoto.h"

#include "MediaKit/Container/MediaError.h"

namespace tallowmark {

namespace {
// The largest RAW files, of multi-shot and medium-format cameras, take less than half of it.
constexpr std::uint64_t largestPhoto = std::uint64_t{2} << 30U;
}  // namespace

std::vector<std::uint8_t> readWholePhoto(const ByteSource& photo) {
  if (photo.size() > largestPhoto) {
    throw MediaError::unsupported("This file is too large to be a photo.");
  }
  return photo.read(0, static_cast<std::size_t>(photo.size()));
}

}  // namespace tallowmark
