// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/TrackReferences.h"

#include <algorithm>
#include <vector>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/BoxWriter.h"

namespace tallowmark::ClipJoin {

namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;
constexpr std::size_t headerSize = 8;

bool isReferences(const Bytes& box) {
  return box.size() >= headerSize && FourCC(bigEndian<std::uint32_t>(box, 4)) == "tref";
}

// One box for each kind of reference, holding track numbers.
void writeReferencesOfOneKind(View box, std::span<const std::uint32_t> carried, BoxWriter& writer) {
  std::vector<std::uint32_t> tracks;
  for (std::size_t at = headerSize; at + 4 <= box.size(); at += 4) {
    const auto track = bigEndian<std::uint32_t>(box, at);
    if (std::binary_search(carried.begin(), carried.end(), track)) {
      tracks.push_back(track);
    }
  }
  if (!tracks.empty()) {
    writer.box(FourCC(bigEndian<std::uint32_t>(box, 4)), [&](BoxWriter& kind) {
      for (const std::uint32_t track : tracks) kind.u32(track);
    });
  }
}

// Empty when no reference is left.
Bytes referencesTo(std::span<const std::uint32_t> carried, View references) {
  BoxWriter writer;
  writer.box("tref", [&](BoxWriter& all) {
    for (View left = references.subspan(headerSize); left.size() >= headerSize;) {
      const auto size = bigEndian<std::uint32_t>(left, 0);
      if (size < headerSize || size > left.size()) {
        break;
      }
      writeReferencesOfOneKind(left.first(size), carried, all);
      left = left.subspan(size);
    }
  });
  return writer.data().size() > headerSize ? writer.take() : Bytes();
}

}  // namespace

void keepReferencesTo(std::span<const std::uint32_t> carried, Track& track) {
  for (Bytes& box : track.extraBoxes) {
    if (isReferences(box)) {
      box = referencesTo(carried, box);
    }
  }
  std::erase_if(track.extraBoxes, [](const Bytes& box) { return box.empty(); });
}

}  // namespace tallowmark::ClipJoin
