// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/BlockDevice.h"

#include <algorithm>
#include <cerrno>

#include "DeviceKit/DeviceError.h"

namespace tallowmark {

namespace {

// A stretch that cannot be read as one is split into parts of a power of so many blocks, down to
// single ones. Halves would make twice as many failing reads as there are bad blocks; sixteenths
// make a fifteenth more.
constexpr std::size_t parts = 16;

class Salvage {
 public:
  Salvage(const BlockDevice& device, const BlockVisit& visit)
      : device_(device), block_(device.blockSize()), visit_(visit) {}

  void fill(std::uint64_t offset, std::span<std::uint8_t> into) const {
    take(offset, into, device_.readAt(offset, into), true);
  }

  // The stretch is known not to come as one.
  void fillInParts(std::uint64_t offset, std::span<std::uint8_t> into) const {
    const std::size_t blocks = (into.size() + block_ - 1) / block_;
    std::size_t part = block_;
    while (part / block_ * parts < blocks) part *= parts;
    for (std::size_t done = 0; done < into.size(); done += part) {
      const auto piece = into.subspan(done, std::min(part, into.size() - done));
      take(offset + done, piece, device_.readExactly(offset + done, piece), false);
    }
  }

 private:
  // What a read brought counts up to the last whole block; the rest is split further.
  void take(std::uint64_t offset, std::span<std::uint8_t> into, ReadOutcome got,
            bool triedAhead) const {
    const std::size_t good = got.count == into.size() ? got.count : got.count / block_ * block_;
    if (good > 0) {
      visit_(offset, into.first(good), true);
    }
    if (good == into.size()) {
      return;
    }
    if (!device_.isPresent()) {
      throw DeviceError::readFailed(offset + good, got.error != 0 ? got.error : ENXIO);
    }
    const auto rest = into.subspan(good);
    if (rest.size() > block_ || triedAhead) {
      fillInParts(offset + good, rest);
      return;
    }
    std::fill(rest.begin(), rest.end(), std::uint8_t{0});
    visit_(offset + good, rest, false);
  }

  const BlockDevice& device_;
  std::size_t block_;
  const BlockVisit& visit_;
};

}  // namespace

void readBlocks(const BlockDevice& device, std::uint64_t offset, std::span<std::uint8_t> into,
                const BlockVisit& visit) {
  if (!into.empty()) {
    Salvage(device, visit).fill(offset, into);
  }
}

void readBlocksAround(const BlockDevice& device, std::uint64_t offset, std::span<std::uint8_t> into,
                      const BlockVisit& visit) {
  Salvage(device, visit).fillInParts(offset, into);
}

}  // namespace tallowmark
