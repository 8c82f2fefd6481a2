// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/SamplingRate.h"

#include <bit>
#include <span>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Sound/AACConfig.h"

namespace tallowmark {

namespace {

// AudioSampleEntry (ISO/IEC 14496-12 §12.2.3) and QuickTime's sound description, version 2.
constexpr std::size_t versionPlace = 16;
constexpr std::size_t ratePlace = 32;
constexpr std::size_t wideRatePlace = 40;

bool hasWideRate(std::span<const std::uint8_t> entry) {
  return bigEndian<std::uint16_t>(entry, versionPlace) == 2;
}

// Of the description's own field. Rates of more than 16 bits leave it empty.
std::optional<std::uint32_t> statedRate(std::span<const std::uint8_t> entry) {
  if (entry.size() < wideRatePlace + 8) {
    return std::nullopt;
  }
  if (!hasWideRate(entry)) {
    return bigEndian<std::uint32_t>(entry, ratePlace) >> 16U;
  }
  const auto rate = std::bit_cast<double>(bigEndian<std::uint64_t>(entry, wideRatePlace));
  return rate >= 1 && rate <= 1e6 ? std::optional(static_cast<std::uint32_t>(rate)) : std::nullopt;
}

void write(std::vector<std::uint8_t>& entry, std::size_t at, std::uint64_t value, unsigned bytes) {
  for (unsigned i = 0; i < bytes; ++i) {
    entry[at + i] = static_cast<std::uint8_t>(value >> (8 * (bytes - 1 - i)));
  }
}

void writeRate(std::vector<std::uint8_t>& entry, std::uint32_t rate) {
  if (hasWideRate(entry)) {
    write(entry, wideRatePlace, std::bit_cast<std::uint64_t>(static_cast<double>(rate)), 8);
  } else {
    write(entry, ratePlace, std::uint64_t{rate} << 16U, 4);
  }
}

}  // namespace

std::optional<std::uint32_t> samplingRateOf(const Track& track) {
  const bool isAAC = AACConfig::of(track.sampleEntry).has_value();
  const auto rate = isAAC ? AACConfig::soleRate(track.sampleEntry) : statedRate(track.sampleEntry);
  return rate == track.timescale ? rate : std::nullopt;
}

bool setSamplingRate(Track& track, std::uint32_t rate) {
  const auto before = samplingRateOf(track);
  if (!before || rate == 0 || rate > 0xFFFFU) {
    return false;
  }
  const bool isAAC = AACConfig::of(track.sampleEntry).has_value();
  if (isAAC && !AACConfig::setSoleRate(track.sampleEntry, rate)) {
    return false;
  }
  if (statedRate(track.sampleEntry) == before) writeRate(track.sampleEntry, rate);
  track.timescale = rate;
  return true;
}

}  // namespace tallowmark
