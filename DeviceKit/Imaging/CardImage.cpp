// SPDX-License-Identifier: GPL-3.0-or-later
#include "DeviceKit/Imaging/CardImage.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <vector>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/Imaging/ImageError.h"
#include "DeviceKit/Imaging/ImageFile.h"
#include "DeviceKit/Imaging/SameCard.h"

namespace tallowmark::CardImage {

namespace {

using Clock = std::chrono::steady_clock;
using Stretch = ReadMap::Stretch;

constexpr std::size_t pieceSize = std::size_t{8} << 20U;
// So many failures in a row, and a block that was read before tells whether the card still answers.
constexpr std::uint64_t failuresToDoubtAt = 64;
// So many without anything ever read, and there is no card to speak of.
constexpr std::uint64_t failuresToGiveUpAt = 4096;

class Copying {
 public:
  Copying(const BlockDevice& card, ImageFile& image, const Progress& progress,
          const StopToken& stop)
      : card_(card), image_(image), progress_(progress), stop_(stop) {}

  void run() {
    const std::vector<Stretch> failedBefore = image_.map().stretches(ReadMap::State::bad);
    const BlockVisit visit = [this](auto at, auto bytes, bool wasRead) {
      note(at, bytes, wasRead);
    };
    forPieces(untried(),
              [&](std::uint64_t at, std::span<std::uint8_t> bytes) { readEasily(at, bytes); });
    forPieces(untried(), [&](std::uint64_t at, std::span<std::uint8_t> bytes) {
      readBlocksAround(card_, at, bytes, visit);
    });
    forPieces(failedBefore, [&](std::uint64_t at, std::span<std::uint8_t> bytes) {
      readBlocks(card_, at, bytes, visit);
    });
  }

 private:
  std::vector<Stretch> untried() const { return image_.map().stretches(ReadMap::State::untried); }

  // Pieces of whole blocks that cover the stretches.
  void forPieces(const std::vector<Stretch>& stretches,
                 const std::function<void(std::uint64_t, std::span<std::uint8_t>)>& work) {
    const std::uint64_t block = card_.blockSize();
    const std::uint64_t piece = std::max<std::uint64_t>(pieceSize / block, 1) * block;
    buffer_.resize(static_cast<std::size_t>(piece));
    for (const auto& [offset, length] : stretches) {
      const std::uint64_t end =
          std::min((offset + length + block - 1) / block * block, card_.size());
      for (std::uint64_t at = offset / block * block; at < end; at += piece) {
        stop_.check();
        work(at, std::span(buffer_).first(static_cast<std::size_t>(std::min(end - at, piece))));
      }
    }
  }

  // A card that is about to fail gives first what it gives without trouble.
  void readEasily(std::uint64_t at, std::span<std::uint8_t> bytes) {
    const ReadOutcome got = card_.readAt(at, bytes);
    const std::size_t whole =
        got.count == bytes.size() ? got.count : got.count / card_.blockSize() * card_.blockSize();
    if (whole > 0) {
      take(at, bytes.first(whole));
    }
    if (whole < bytes.size() && !card_.isPresent()) {
      throw ImageError::noAnswer();
    }
  }

  void note(std::uint64_t at, std::span<const std::uint8_t> bytes, bool wasRead) {
    if (wasRead) {
      failuresInARow_ = 0;
      take(at, bytes);
      return;
    }
    if (++failuresInARow_ % failuresToDoubtAt == 0) {
      requireAnswer();
    }
    image_.markBad(at, bytes.size());
    afterStep();
  }

  // Not every reader says that its card is gone: some fail every read from then on. Blocks that
  // were called bad meanwhile are tried again by the next run.
  void requireAnswer() const {
    const auto read = image_.map().stretches(ReadMap::State::read);
    const auto known = std::find_if(read.begin(), read.end(), [&](const Stretch& stretch) {
      return stretch.offset % card_.blockSize() == 0 && stretch.length >= card_.blockSize();
    });
    if (known == read.end()) {
      if (failuresInARow_ < failuresToGiveUpAt) return;
      throw ImageError::noAnswer();
    }
    std::vector<std::uint8_t> block(card_.blockSize());
    if (card_.readExactly(known->offset, block).count != block.size()) {
      throw ImageError::noAnswer();
    }
  }

  void take(std::uint64_t at, std::span<const std::uint8_t> bytes) {
    image_.write(at, bytes);
    afterStep();
  }

  void afterStep() {
    if (progress_) {
      progress_(card_.size() - image_.map().bytes(ReadMap::State::untried));
    }
    if (Clock::now() - saved_ >= saveInterval) {
      image_.save();
      saved_ = Clock::now();
    }
    stop_.check();
  }

  const BlockDevice& card_;
  ImageFile& image_;
  const Progress& progress_;
  const StopToken& stop_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t failuresInARow_ = 0;
  Clock::time_point saved_ = Clock::now();
};

// For the next run; what ended this one is told, not that this failed, too.
void saveQuietly(ImageFile& image) {
  try {
    image.save();
  } catch (const DeviceError&) {
    return;
  }
}

}  // namespace

Result copy(const BlockDevice& card, const std::filesystem::path& file, const Progress& progress,
            const StopToken& stop) {
  ImageFile image(file, card.size());
  if (!canBeSameCard(card, image)) {
    throw ImageError::anotherCard(file);
  }
  Result result;
  result.size = card.size();
  result.readBefore = image.map().bytes(ReadMap::State::read);
  try {
    Copying(card, image, progress, stop).run();
  } catch (const std::exception& error) {
    saveQuietly(image);
    const auto* device = dynamic_cast<const DeviceError*>(&error);
    if (device != nullptr && device->kind() == DeviceError::Kind::readFailed) {
      throw ImageError::noAnswer();
    }
    throw;
  }
  image.publish();
  result.unreadableBytes = image.map().bytes(ReadMap::State::bad);
  result.unreadableBlocks = (result.unreadableBytes + card.blockSize() - 1) / card.blockSize();
  return result;
}

}  // namespace tallowmark::CardImage
