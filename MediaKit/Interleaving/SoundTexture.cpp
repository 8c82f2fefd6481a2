// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/SoundTexture.h"

#include <algorithm>
#include <limits>
#include <vector>

namespace tallowmark {

namespace {
constexpr std::uint64_t blocksToLearnFrom = 400;

// From the loudest below zero to the loudest above it, which bytes by these laws are not in order
// of.
std::vector<std::uint8_t> loudnessOf(FourCC codec) {
  constexpr unsigned above = 0x80;
  const bool isMuLaw = codec == "ulaw";
  if (!isMuLaw && codec != "alaw") {
    return {};
  }
  std::vector<std::uint8_t> loudness(256);
  for (unsigned byte = 0; byte < loudness.size(); ++byte) {
    const unsigned stored = byte ^ (isMuLaw ? 0x7FU : 0x55U);
    const unsigned magnitude = stored & 0x7FU;
    loudness[byte] = static_cast<std::uint8_t>((stored & above) != 0 ? above + magnitude
                                                                     : above - 1 - magnitude);
  }
  return loudness;
}

// Random bytes lie 64 apart on the circle of 256 values, on average; over a block of few samples
// with many bytes each, the calmest byte comes down to 50.
constexpr double clearlyNotRandom = 40;
constexpr double clearlyNotRandomByLaw = 54;
constexpr double leastRandom = 50;
constexpr double leastRandomByLaw = 58;
}  // namespace

// The mean distance between neighbours, for the byte position where it is smallest.
double SoundTexture::smallestStep(std::span<const std::uint8_t> block) const {
  std::vector<std::uint8_t> heard;
  if (!loudness_.empty()) {
    heard.reserve(block.size());
    for (const std::uint8_t byte : block) heard.push_back(loudness_[byte]);
    block = heard;
  }
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
  texture.loudness_ = loudnessOf(audio.codec);
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
  // The mean of a thousand bytes is steady; one by one they are not as calm as the calmest of two.
  const bool isByLaw = !texture.loudness_.empty();
  const double least = isByLaw ? clearlyNotRandomByLaw : clearlyNotRandom;
  if (usual * (isByLaw ? 1.25 : 2) < least) {
    texture.largestStep_ = std::clamp(usual * 4, 12.0, least);
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
  const double least = loudness_.empty() ? leastRandom : leastRandomByLaw;
  return smallestStep(block) >= least || (!hasDigitalSilence_ && isZeros(block));
}

bool SoundTexture::isSound(std::span<const std::uint8_t> block) const {
  return !isNoise(block) && (hasDigitalSilence_ || !isZeros(block));
}

}  // namespace tallowmark
