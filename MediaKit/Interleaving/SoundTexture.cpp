// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/SoundTexture.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace tallowmark {

namespace {
constexpr std::uint64_t blocksToLearnFrom = 400;

// Random bytes lie 64 apart on the circle of 256 values, on average; over a block of few samples
// with many bytes each, the calmest byte comes down to 50.
constexpr double clearlyNotRandom = 40;
constexpr double leastRandom = 50;
}  // namespace

// The mean distance between neighbours, for the byte position where it is smallest.
double SoundTexture::smallestStep(std::span<const std::uint8_t> block) const {
  const std::size_t size = sampleSize_;
  if (block.size() <= size) {
    return std::numeric_limits<double>::max();
  }
  // Summed in columns over rows of several whole samples, which the compiler does many at a time.
  const std::size_t row = size * std::max<std::size_t>(1, 64 / size);
  const std::size_t steps = block.size() - size;
  std::vector<std::uint32_t> columns(row);
  for (std::size_t start = 0; start < steps; start += row) {
    const std::uint8_t* const from = block.data() + start;
    const std::uint8_t* const to = from + size;
    for (std::size_t i = 0; i < std::min(row, steps - start); ++i) {
      const auto up = static_cast<std::uint8_t>(to[i] - from[i]);
      columns[i] += std::min(up, static_cast<std::uint8_t>(-up));
    }
  }
  double smallest = std::numeric_limits<double>::max();
  for (std::size_t byte = 0; byte < std::min(size, steps); ++byte) {
    std::uint64_t sum = 0;
    for (std::size_t i = byte; i < row; i += size) sum += columns[i];
    const std::size_t count = (steps - byte + size - 1) / size;
    smallest = std::min(smallest, static_cast<double>(sum) / static_cast<double>(count));
  }
  return smallest;
}

SoundTexture SoundTexture::learn(const Track& audio, PCMLayout pcm, const ByteSource& source) {
  SoundTexture texture;
  texture.sampleSize_ = pcm.sampleSize;
  const std::uint64_t samplesPerBlock = std::max<std::uint64_t>(96, 1024 / pcm.sampleSize);
  texture.blockSize_ = static_cast<std::size_t>(samplesPerBlock * pcm.sampleSize);

  std::vector<double> steps;
  const std::uint64_t count = audio.samples.size();
  const std::uint64_t stride = std::max(samplesPerBlock, count / blocksToLearnFrom);
  for (std::uint64_t i = 0; i + samplesPerBlock <= count; i += stride) {
    // Samples lie back to back within a chunk; a block over its end reads on into other data and
    // is an outlier that the quantile below forgives.
    const auto block = source.read(audio.samples[i].offset, texture.blockSize_);
    if (block.size() == texture.blockSize_ &&
        audio.samples[i + samplesPerBlock - 1].offset ==
            audio.samples[i].offset + (samplesPerBlock - 1) * pcm.sampleSize) {
      steps.push_back(texture.smallestStep(block));
      texture.hasDigitalSilence_ = texture.hasDigitalSilence_ || isZeros(block);
    }
  }
  if (steps.size() < 4) {
    return texture;
  }
  std::sort(steps.begin(), steps.end());
  const double usual = steps[steps.size() * 19 / 20];
  if (usual * 2 < clearlyNotRandom) {
    texture.largestStep_ = std::clamp(usual * 4, 12.0, clearlyNotRandom);
  }
  return texture;
}

bool SoundTexture::isZeros(std::span<const std::uint8_t> block) {
  return std::all_of(block.begin(), block.end(), [](std::uint8_t byte) { return byte == 0; });
}

bool SoundTexture::isNoise(std::span<const std::uint8_t> block) const {
  return smallestStep(block) > largestStep_;
}

bool SoundTexture::isNoSound(std::span<const std::uint8_t> block) const {
  return smallestStep(block) >= leastRandom || (!hasDigitalSilence_ && isZeros(block));
}

bool SoundTexture::isSound(std::span<const std::uint8_t> block) const {
  return !isNoise(block) && (hasDigitalSilence_ || !isZeros(block));
}

}  // namespace tallowmark
