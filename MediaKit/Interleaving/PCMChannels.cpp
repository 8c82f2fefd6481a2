// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/PCMChannels.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Container/MovieWriter.h"

namespace tallowmark {

namespace {

constexpr std::uint64_t blocksToHear = 128;
constexpr std::uint64_t mostRows = 512;

/// How far bytes move, by their place in rows of twice a sample's size.
class Movement {
 public:
  explicit Movement(std::size_t size) : size_(size), toHalf_(2 * size), toNext_(2 * size) {}

  void add(std::span<const std::uint8_t> block) {
    const std::size_t row = 2 * size_;
    for (std::size_t at = 0; at + 2 * row <= block.size(); at += row, ++rows_) {
      for (std::size_t place = 0; place < row; ++place) {
        toHalf_[place] += distance(block[at + place], block[at + place + size_]);
        toNext_[place] += distance(block[at + place], block[at + place + row]);
      }
    }
  }

  std::optional<bool> isOfOneSample() const {
    constexpr double different = 1.25;
    constexpr double alike = 1.1;
    const auto top = topByte();
    if (!top) {
      return std::nullopt;
    }
    const double first = toHalf_[*top];
    const double second = toHalf_[*top + size_];
    const double next = toNext(*top);
    const double step = (first + second) / 2;
    const auto [smaller, larger] = std::minmax(first, second);
    if (larger > different * smaller || step > 1.15 * next) {
      return false;
    }
    return larger < alike * smaller && step < 0.9 * next ? std::optional(true) : std::nullopt;
  }

 private:
  // On the circle of a byte's values.
  static double distance(std::uint8_t from, std::uint8_t to) {
    const auto up = static_cast<std::uint8_t>(to - from);
    return std::min(up, static_cast<std::uint8_t>(-up));
  }

  double toNext(std::size_t place) const { return (toNext_[place] + toNext_[place + size_]) / 2; }

  // The most significant byte of a channel moves least, but for those that hardly ever do, where
  // samples are quiet or have fewer bits than room.
  std::optional<std::size_t> topByte() const {
    constexpr double least = 0.02;
    std::optional<std::size_t> top;
    for (std::size_t place = 0; place < size_; ++place) {
      const bool moves = toNext(place) >= least * static_cast<double>(rows_);
      if (moves && (!top || toNext(place) < toNext(*top))) top = place;
    }
    return top;
  }

  std::size_t size_;
  std::vector<double> toHalf_;
  std::vector<double> toNext_;
  std::uint64_t rows_ = 0;
};

// Whether samples have that size rather than twice as much.
std::optional<bool> haveSamplesOf(std::uint32_t size, const SampleList& sound,
                                  const ByteSource& source) {
  constexpr std::uint64_t fewestRows = 32;
  const std::uint64_t row = 2 * std::uint64_t{size};
  std::vector<ByteRange> blocks;
  for (const SampleRun& run : sound.runs()) {
    for (std::uint64_t at = run.first.offset; at + fewestRows * row <= run.end();) {
      const std::uint64_t rows = std::min(mostRows, (run.end() - at) / row);
      blocks.push_back({at, at + rows * row});
      at += rows * row;
    }
  }
  Movement movement(size);
  const std::size_t stride = blocks.size() / blocksToHear + 1;
  for (std::size_t i = 0; i < blocks.size(); i += stride) {
    movement.add(source.read(blocks[i].lower, static_cast<std::size_t>(blocks[i].length())));
  }
  return movement.isOfOneSample();
}

bool isNearTo(double value, double wanted) {
  return std::abs(value / wanted - 1) < 0.03;
}

}  // namespace

bool hasChannelsOf(const PCMLayout& reference, double ratio, const SampleList& sound,
                   const ByteSource& source) {
  // Sixteen channels of four bytes.
  constexpr std::uint32_t largest = 64;
  if (reference.sampleSize > largest) {
    return false;
  }
  if (isNearTo(ratio, 2)) {
    return haveSamplesOf(reference.sampleSize, sound, source) == true;
  }
  // Half of an odd number of bytes is no sample.
  return isNearTo(ratio, 0.5) && (reference.sampleSize % 2 != 0 ||
                                  haveSamplesOf(reference.sampleSize / 2, sound, source) == false);
}

}  // namespace tallowmark
