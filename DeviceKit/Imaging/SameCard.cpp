// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Imaging/SameCard.h"

#include <algorithm>
#include <vector>

namespace tallowmark {

namespace {

constexpr std::uint64_t samples = 64;
constexpr std::uint64_t sampleSize = std::uint64_t{16} << 10U;

// Spread evenly over what was read, the first where it starts: there cards have numbers of their
// own.
std::vector<ReadMap::Stretch> samplesOf(const ReadMap& map, std::uint64_t block) {
  std::vector<ReadMap::Stretch> chosen;
  const std::uint64_t step =
      std::max<std::uint64_t>(map.bytes(ReadMap::State::read) / samples, sampleSize);
  std::uint64_t skip = 0;
  for (const ReadMap::Stretch& stretch : map.stretches(ReadMap::State::read)) {
    for (; skip < stretch.length; skip += step) {
      const std::uint64_t place = (stretch.offset + skip + block - 1) / block * block;
      const std::uint64_t end = stretch.offset + stretch.length;
      const std::uint64_t room = place < end ? std::min<std::uint64_t>(end - place, sampleSize) : 0;
      if (room >= block) {
        chosen.push_back({place, room / block * block});
      }
    }
    skip -= stretch.length;
  }
  return chosen;
}

bool isNothing(const std::vector<std::uint8_t>& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0; });
}

}  // namespace

bool canBeSameCard(const BlockDevice& card, const ImageFile& image) {
  std::size_t alike = 0;
  std::size_t different = 0;
  for (const auto& [offset, length] : samplesOf(image.map(), card.blockSize())) {
    std::vector<std::uint8_t> now(static_cast<std::size_t>(length));
    std::vector<std::uint8_t> then(now.size());
    if (card.readExactly(offset, now).count != now.size() ||
        image.read(offset, then) != then.size()) {
      continue;
    }
    different += now != then ? 1U : 0U;
    alike += now == then && !isNothing(now) ? 1U : 0U;
  }
  // A card that was put into a camera meanwhile differs in a few places.
  return different <= alike / 2;
}

}  // namespace tallowmark
