// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Sound/AACConfig.h"

#include <algorithm>
#include <array>

#include "MediaKit/Sound/BitWindow.h"

namespace tallowmark {

namespace {

using Bytes = std::span<const std::uint8_t>;

// Descriptor tags (ISO/IEC 14496-1 §7.2.2.1).
constexpr std::uint8_t esDescriptor = 3;
constexpr std::uint8_t decoderConfigDescriptor = 4;
constexpr std::uint8_t decoderSpecificInfo = 5;

// Audio object types (ISO/IEC 14496-3 §1.5.1.1).
constexpr unsigned lowComplexity = 2;
constexpr unsigned bandReplication = 5;
constexpr unsigned parametricStereo = 29;

// The payload of the descriptor that starts `bytes`, clipped to them; nothing when it is another.
std::optional<Bytes> payload(Bytes bytes, std::uint8_t tag) {
  if (bytes.empty() || bytes[0] != tag) {
    return std::nullopt;
  }
  // Sizes take up to four bytes of seven bits (§8.3.3).
  std::size_t size = 0;
  for (std::size_t at = 1; at < bytes.size() && at <= 4; ++at) {
    size = (size << 7U) | (bytes[at] & 0x7FU);
    if ((bytes[at] & 0x80U) == 0) {
      const Bytes rest = bytes.subspan(at + 1);
      return rest.first(std::min(size, rest.size()));
    }
  }
  return std::nullopt;
}

Bytes behind(Bytes bytes, std::size_t count) {
  return bytes.subspan(std::min(count, bytes.size()));
}

// §7.2.6.5: what stands before the nested descriptors depends on three flags.
Bytes insideElementaryStream(Bytes stream) {
  if (stream.size() < 3) {
    return {};
  }
  const std::uint8_t flags = stream[2];
  std::size_t skip = 3;
  skip += (flags & 0x80U) != 0 ? 2 : 0;
  if ((flags & 0x40U) != 0) {
    skip += skip < stream.size() ? std::size_t{1} + stream[skip] : 1;
  }
  skip += (flags & 0x20U) != 0 ? 2 : 0;
  return behind(stream, skip);
}

bool isAAC(std::uint8_t objectType) {
  return objectType == 0x40 || (objectType >= 0x66 && objectType <= 0x68);
}

std::optional<Bytes> specificInfo(Bytes sampleEntry) {
  static constexpr std::array<std::uint8_t, 4> type{'e', 's', 'd', 's'};
  // A byte search: QuickTime keeps the box inside a box of its own.
  const auto found = std::search(sampleEntry.begin(), sampleEntry.end(), type.begin(), type.end());
  if (found == sampleEntry.end()) {
    return std::nullopt;
  }
  constexpr std::size_t typeAndVersion = 8;
  const Bytes box = sampleEntry.subspan(static_cast<std::size_t>(found - sampleEntry.begin()));
  const auto stream = payload(behind(box, typeAndVersion), esDescriptor);
  const auto decoder =
      stream ? payload(insideElementaryStream(*stream), decoderConfigDescriptor) : std::nullopt;
  if (!decoder || decoder->empty() || !isAAC(decoder->front())) {
    return std::nullopt;
  }
  constexpr std::size_t beforeSpecificInfo = 13;
  return payload(behind(*decoder, beforeSpecificInfo), decoderSpecificInfo);
}

unsigned readObjectType(BitWindow& bits) {
  const unsigned type = bits.take(5);
  return type == 31 ? 32 + bits.take(6) : type;
}

// §4.5.1.1: a rate that is written out uses the tables of the nearest one that has an index.
unsigned readRateIndex(BitWindow& bits) {
  constexpr unsigned writtenOut = 15;
  const unsigned index = bits.take(4);
  if (index != writtenOut) {
    return index;
  }
  static constexpr std::array<std::uint32_t, 11> lowest{92017, 75132, 55426, 46009, 37566, 27713,
                                                        23004, 18783, 13856, 11502, 9391};
  const std::uint32_t rate = bits.take(24);
  return static_cast<unsigned>(
      std::find_if(lowest.begin(), lowest.end(), [&](auto least) { return rate >= least; }) -
      lowest.begin());
}

}  // namespace

std::optional<AACConfig> AACConfig::of(std::span<const std::uint8_t> sampleEntry) {
  const auto info = specificInfo(sampleEntry);
  if (!info) {
    return std::nullopt;
  }
  // AudioSpecificConfig (§1.6.2.1), GASpecificConfig (§4.4.1).
  BitWindow bits(*info);
  AACConfig config;
  unsigned type = readObjectType(bits);
  config.rateIndex = readRateIndex(bits);
  config.channelConfiguration = bits.take(4);
  if (type == bandReplication || type == parametricStereo) {
    readRateIndex(bits);
    type = readObjectType(bits);
  }
  config.frameLength = bits.take(1) != 0 ? 960 : 1024;
  constexpr unsigned largestRateIndex = 12;
  if (bits.isOver() || type != lowComplexity || config.rateIndex > largestRateIndex) {
    return std::nullopt;
  }
  return config;
}

namespace {

constexpr std::array<std::uint32_t, 13> indexedRates{
    96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};

// Band replication may be announced behind all else (§1.6.2.1, syncExtensionType).
bool mayReplicateBands(Bytes info) {
  constexpr unsigned announcement = 0x2B7;
  BitWindow bits(info);
  bits.skip(9);
  const bool listsChannels = bits.take(4) == 0;
  const bool hasExtensions = (bits.take(3) & 3U) != 0;
  if (listsChannels || hasExtensions) {
    return true;
  }
  const bool isAnnounced = bits.take(11) == announcement;
  bits.skip(5);
  return isAnnounced && bits.take(1) != 0 && !bits.isOver();
}

// Where its two bytes begin, which hold the type and the index.
std::optional<std::size_t> placeOfSoleRate(Bytes sampleEntry) {
  const auto info = specificInfo(sampleEntry);
  if (!info || info->size() < 2 || !AACConfig::of(sampleEntry)) {
    return std::nullopt;
  }
  BitWindow bits(*info);
  const bool isPlain = readObjectType(bits) == lowComplexity && bits.take(4) < indexedRates.size();
  return isPlain && !mayReplicateBands(*info)
             ? std::optional(static_cast<std::size_t>(info->data() - sampleEntry.data()))
             : std::nullopt;
}

}  // namespace

std::optional<std::uint32_t> AACConfig::soleRate(std::span<const std::uint8_t> sampleEntry) {
  const auto config = placeOfSoleRate(sampleEntry) ? of(sampleEntry) : std::nullopt;
  return config ? std::optional(indexedRates.at(config->rateIndex)) : std::nullopt;
}

bool AACConfig::setSoleRate(std::span<std::uint8_t> sampleEntry, std::uint32_t rate) {
  const auto place = placeOfSoleRate(sampleEntry);
  const auto index = std::find(indexedRates.begin(), indexedRates.end(), rate);
  if (!place || index == indexedRates.end()) {
    return false;
  }
  const auto number = static_cast<unsigned>(index - indexedRates.begin());
  std::uint8_t& first = sampleEntry[*place];
  std::uint8_t& second = sampleEntry[*place + 1];
  first = static_cast<std::uint8_t>((first & 0xF8U) | (number >> 1U));
  second = static_cast<std::uint8_t>((second & 0x7FU) | ((number & 1U) << 7U));
  return true;
}

unsigned AACConfig::mostChannels() const {
  static constexpr std::array<unsigned, 8> channels{8, 1, 2, 3, 4, 5, 6, 8};
  return channelConfiguration < channels.size() ? channels[channelConfiguration] : channels[0];
}

}  // namespace tallowmark
