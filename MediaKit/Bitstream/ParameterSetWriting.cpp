// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/ParameterSetWriting.h"

#include <algorithm>
#include <bit>
#include <utility>

#include "MediaKit/Bitstream/BitReader.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/BitSink.h"

namespace tallowmark {

namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

// Parameter sets are far smaller.
constexpr std::size_t largestWrittenSet = 4096;

// Exp-Golomb (H.264 §9.1)
void putUe(BitSink& sink, std::uint32_t value) {
  const auto width = static_cast<unsigned>(std::bit_width(value + 1));
  sink.put(0, width - 1);
  sink.put(value + 1, width);
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

// A unit with what `put` writes in place of the bits [from, to) of its payload.
template <typename Put>
Bytes withOther(View unit, NALFormat::Codec codec, std::pair<std::size_t, std::size_t> range,
                const Put& put) {
  const std::size_t headerSize = codec == NALFormat::Codec::h264 ? 1 : 2;
  const View payload = unit.subspan(headerSize);
  const std::size_t end = payloadBits(payload);
  BitReader bits(payload);
  BitSink sink;
  while (bits.position() < range.first) sink.put(bits.bit(), 1);
  put(sink);
  bits.skip(range.second - range.first);
  while (bits.position() < end) sink.put(bits.bit(), 1);
  Bytes written(unit.begin(), unit.begin() + static_cast<std::ptrdiff_t>(headerSize));
  appendEscaped(written, sink.take());
  return written;
}

template <typename Number>
void putNumber(Bytes& bytes, std::size_t at, std::size_t value) {
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
  putNumber<std::uint16_t>(entry, place.at - 2, unit.size());
  putNumber<std::uint32_t>(entry, box, boxSize + unit.size() - place.size);
  putNumber<std::uint32_t>(entry, 0, entrySize + unit.size() - place.size);
}

}  // namespace

Bytes withNumbers(View unit, NALFormat::Codec codec, const CodedNumbers& where,
                  std::span<const std::uint32_t> numbers) {
  return withOther(unit, codec, {where.firstBit, where.endBit}, [&](BitSink& sink) {
    for (const std::uint32_t number : numbers) putUe(sink, number);
  });
}

Bytes withBits(View unit, NALFormat::Codec codec, std::size_t firstBit, unsigned count,
               std::uint32_t value) {
  return withOther(unit, codec, {firstBit, firstBit + count},
                   [&](BitSink& sink) { sink.put(value, count); });
}

Bytes withParameterSets(View sampleEntry, NALFormat::Codec codec,
                        const ParameterSetChange& change) {
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
    const View unit = sampleEntry.subspan(place.at, place.size);
    const auto changed = unit.size() <= largestWrittenSet ? change(unit) : std::nullopt;
    if (changed && changed->size() <= largestWrittenSet * 2) {
      replace(entry, *record, place, *changed);
    }
  }
  return entry;
}

}  // namespace tallowmark
