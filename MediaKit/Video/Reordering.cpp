// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/Reordering.h"

#include <algorithm>
#include <bit>
#include <optional>
#include <utility>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Sound/BitSink.h"
#include "MediaKit/Video/BitReader.h"
#include "MediaKit/Video/ParameterSets.h"

namespace tallowmark {

namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

// H.264 §A.3.1, H.265 §A.4.2
constexpr std::uint32_t mostKept = 16;
// Pictures that encoders keep beside those that wait: more would leave the levels they are made
// for.
constexpr std::uint32_t besides = 2;

// Parameter sets are far smaller.
constexpr std::size_t largestWrittenSet = 4096;

// Exp-Golomb (H.264 §9.1)
void putUe(BitSink& sink, std::uint32_t value) {
  const auto width = static_cast<unsigned>(std::bit_width(value + 1));
  sink.put(0, width - 1);
  sink.put(value + 1, width);
}

// Limits that allow `pictures`; nothing when they do already, or no decoder could.
std::optional<std::vector<std::uint32_t>> raised(const OutputLimits& limits, NALFormat::Codec codec,
                                                 std::size_t pictures) {
  std::vector<std::uint32_t> numbers = limits.numbers;
  const bool hevc = codec == NALFormat::Codec::hevc;
  std::uint32_t& reordered = hevc ? *(numbers.end() - 2) : numbers.front();
  std::uint32_t& kept = hevc ? *(numbers.end() - 3) : numbers.back();
  const std::uint32_t most = hevc ? mostKept - 1 : mostKept;
  if (reordered >= pictures || pictures > most) {
    return std::nullopt;
  }
  const auto wanted = static_cast<std::uint32_t>(pictures);
  kept = std::max(kept, std::min(wanted + besides, most));
  reordered = wanted;
  if (hevc) {
    numbers.back() = 0;  // no limit of its own for how long a picture waits
  }
  return numbers;
}

// Payload bytes with those that keep start codes out (H.264 §7.4.1).
void appendEscaped(Bytes& unit, View payload) {
  int zeros = 0;
  for (const std::uint8_t byte : payload) {
    if (zeros >= 2 && byte <= 3) {
      unit.push_back(3);
      zeros = 0;
    }
    unit.push_back(byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
}

// Bits of a unit's payload up to its stop bit, which is the last one set.
std::size_t payloadBits(View payload) {
  BitReader bits(payload);
  std::size_t end = 0;
  for (bool bit = bits.flag(); bits.ok(); bit = bits.flag()) {
    end = bit ? bits.position() : end;
  }
  return end;
}

Bytes withLimits(View unit, std::size_t headerSize, const OutputLimits& limits,
                 std::span<const std::uint32_t> numbers) {
  const View payload = unit.subspan(headerSize);
  const std::size_t end = payloadBits(payload);
  BitReader bits(payload);
  BitSink sink;
  while (bits.position() < limits.firstBit) sink.put(bits.bit(), 1);
  for (const std::uint32_t number : numbers) putUe(sink, number);
  bits.skip(limits.endBit - limits.firstBit);
  while (bits.position() < end) sink.put(bits.bit(), 1);
  Bytes written(unit.begin(), unit.begin() + static_cast<std::ptrdiff_t>(headerSize));
  appendEscaped(written, sink.take());
  return written;
}

// A parameter set that allows `pictures`; nothing when it does already or says nothing.
std::optional<Bytes> raised(View unit, NALFormat::Codec codec, std::size_t pictures) {
  const auto limits =
      unit.size() <= largestWrittenSet ? readOutputLimits(unit, codec) : std::nullopt;
  const auto numbers = limits ? raised(*limits, codec, pictures) : std::nullopt;
  if (!numbers) {
    return std::nullopt;
  }
  Bytes written = withLimits(unit, codec == NALFormat::Codec::h264 ? 1 : 2, *limits, *numbers);
  const auto read = readOutputLimits(written, codec);
  return read && read->numbers == *numbers ? std::optional(std::move(written)) : std::nullopt;
}

template <typename Number>
void put(Bytes& bytes, std::size_t at, std::size_t value) {
  for (std::size_t i = sizeof(Number); i > 0; --i, value >>= 8U) {
    bytes[at + i - 1] = static_cast<std::uint8_t>(value);
  }
}

// Puts `unit` in the place of another in a sample entry, and the lengths around it right.
void replace(Bytes& entry, std::size_t record, const UnitPlace& place, const Bytes& unit) {
  const std::size_t box = record - 8;
  const auto boxSize = bigEndian<std::uint32_t>(entry, box);
  const auto entrySize = bigEndian<std::uint32_t>(entry, 0);
  const auto from = entry.begin() + static_cast<std::ptrdiff_t>(place.at);
  const auto behind = entry.erase(from, from + static_cast<std::ptrdiff_t>(place.size));
  entry.insert(behind, unit.begin(), unit.end());
  put<std::uint16_t>(entry, place.at - 2, unit.size());
  put<std::uint32_t>(entry, box, boxSize + unit.size() - place.size);
  put<std::uint32_t>(entry, 0, entrySize + unit.size() - place.size);
}

}  // namespace

std::vector<std::uint8_t> allowingReordering(std::span<const std::uint8_t> sampleEntry,
                                             NALFormat::Codec codec, std::size_t pictures) {
  Bytes entry(sampleEntry.begin(), sampleEntry.end());
  const auto record = configurationRecord(sampleEntry, codec);
  const bool isEntry =
      record && *record >= 16 && bigEndian<std::uint32_t>(sampleEntry, 0) == sampleEntry.size();
  if (!isEntry) {
    return entry;
  }
  auto units = parameterUnits(sampleEntry, codec);
  // From the last to the first: the places of those ahead stay.
  std::reverse(units.begin(), units.end());
  for (const UnitPlace& place : units) {
    if (const auto unit = raised(sampleEntry.subspan(place.at, place.size), codec, pictures)) {
      replace(entry, *record, place, *unit);
    }
  }
  return entry;
}

}  // namespace tallowmark
