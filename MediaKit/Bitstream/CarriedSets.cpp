// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/CarriedSets.h"

#include <algorithm>
#include <utility>

#include "MediaKit/Bitstream/BitReader.h"
#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Container/BoxWriter.h"

namespace tallowmark {

namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;
using Codec = NALFormat::Codec;

constexpr std::size_t lengthBytes = 4;
// Sets and the messages among them.
constexpr std::size_t mostAhead = std::size_t{16} << 10U;
constexpr std::uint32_t longestSet = 1024;

int typeOf(View unit, Codec codec) {
  return codec == Codec::h264 ? unit[0] & 31 : (unit[0] >> 1) & 63;
}

// In the order in which a configuration record holds them; HEVC's video parameter sets come first.
std::vector<int> setTypes(Codec codec) {
  return codec == Codec::h264 ? std::vector{7, 8} : std::vector{32, 33, 34};
}

bool isSet(int type, Codec codec) {
  const auto types = setTypes(codec);
  return std::find(types.begin(), types.end(), type) != types.end();
}

// A sequence's set begins with profile and level (ITU-T H.264 §7.3.2.1.1, H.265 §7.3.3); none is
// shorter than its header and a byte.
std::uint32_t shortestOf(int type) {
  constexpr std::uint32_t profileHEVC = 12;
  return type == 7 ? 4 : type == 33 ? 3 + profileHEVC : 3;
}

bool opensKeyPicture(View unit, Codec codec) {
  const int type = typeOf(unit, codec);
  return codec == Codec::h264 ? type == 1 || type == 5 : type >= 16 && type <= 21;
}

bool areComplete(const CarriedSets& sets, Codec codec) {
  constexpr std::uint32_t smallest = 64;
  constexpr std::uint32_t largest = 16384;
  constexpr std::uint32_t mostBits = 14;
  const ParameterSets read = sets.read(codec);
  const auto isPlausible = [](const auto& sequence) {
    const SequenceParameters& sps = sequence.second;
    return std::min(sps.width, sps.height) >= smallest &&
           std::max(sps.width, sps.height) <= largest && sps.bitDepth <= mostBits;
  };
  const bool hasVideoSet =
      codec == Codec::h264 || std::any_of(sets.units.begin(), sets.units.end(),
                                          [&](View unit) { return typeOf(unit, codec) == 32; });
  return hasVideoSet && !read.sequences.empty() && !read.pictures.empty() &&
         std::all_of(read.sequences.begin(), read.sequences.end(), isPlausible);
}

// The sets among the units that lead to a key picture's first slice.
std::optional<CarriedSets> setsAhead(View bytes, Codec codec) {
  constexpr int mostUnits = 16;
  CarriedSets sets;
  std::size_t at = 0;
  for (int units = 0; units < mostUnits && bytes.size() - at > lengthBytes + 2; ++units) {
    const auto length = bigEndian<std::uint32_t>(bytes, at);
    const View unit = bytes.subspan(at + lengthBytes);
    if (opensKeyPicture(unit, codec)) {
      return length > 2 && areComplete(sets, codec) ? std::optional(std::move(sets)) : std::nullopt;
    }
    if (length < 2 || length > unit.size()) {
      return std::nullopt;
    }
    const int type = typeOf(unit, codec);
    if (isSet(type, codec)) {
      if (length < shortestOf(type) || length > longestSet) return std::nullopt;
      sets.units.emplace_back(unit.begin(), unit.begin() + static_cast<std::ptrdiff_t>(length));
    }
    at += lengthBytes + length;
  }
  return std::nullopt;
}

/// Counts those that are the same.
class Ballot {
 public:
  void add(CarriedSets sets) {
    ++total_;
    const auto known = std::find_if(votes_.begin(), votes_.end(),
                                    [&](const auto& vote) { return vote.first == sets; });
    if (known != votes_.end()) {
      ++known->second;
    } else {
      votes_.emplace_back(std::move(sets), 1);
    }
  }
  std::size_t total() const { return total_; }
  std::optional<CarriedSets> mostFrequent() const {
    const auto best =
        std::max_element(votes_.begin(), votes_.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    return best == votes_.end() ? std::nullopt : std::optional(best->first);
  }

 private:
  std::vector<std::pair<CarriedSets, std::size_t>> votes_;
  std::size_t total_ = 0;
};

// Whether the first of the sets may stand here.
bool mayOpen(View bytes, std::size_t at, Codec codec) {
  return bytes[at] == 0 && bytes[at + 1] == 0 &&
         bigEndian<std::uint32_t>(bytes, at) <= longestSet &&
         (bytes[at + lengthBytes] & 0x80U) == 0 &&
         typeOf(bytes.subspan(at + lengthBytes), codec) == setTypes(codec).front();
}

// ISO/IEC 14496-15 §5.3.3.1
Bytes recordH264(const std::vector<std::vector<View>>& sets, const SequenceParameters& sps) {
  BoxWriter record;
  const View first = sets.front().front();
  record.u8(1);
  record.bytes(first.subspan(1, 3));
  record.u8(0xFC | (lengthBytes - 1));
  record.u8(static_cast<std::uint8_t>(0xE0U | sets[0].size()));
  for (std::size_t kind = 0; kind < sets.size(); ++kind) {
    if (kind == 1) record.u8(static_cast<std::uint8_t>(sets[kind].size()));
    for (const View unit : sets[kind]) {
      record.u16(static_cast<std::uint16_t>(unit.size()));
      record.bytes(unit);
    }
  }
  if (sps.profile == 100 || sps.profile == 110 || sps.profile == 122 || sps.profile == 144) {
    const auto depth = static_cast<std::uint8_t>(0xF8U | (sps.bitDepth - 8));
    record.u8(static_cast<std::uint8_t>(0xFCU | sps.chromaFormat));
    record.u8(depth);
    record.u8(depth);
    record.u8(0);
  }
  return record.take();
}

// ISO/IEC 14496-15 §8.3.3.1. Profile, tier and level stand in the sequence's set as they do here.
Bytes recordHEVC(const std::vector<std::vector<View>>& sets, const SequenceParameters& sps) {
  constexpr int profileTierLevel = 12;
  BoxWriter record;
  BitReader bits(sets[1].front().subspan(2));
  bits.skip(4);
  const std::uint32_t layers = bits.bits(3) + 1;
  const std::uint32_t nested = bits.bit();
  record.u8(1);
  for (int i = 0; i < profileTierLevel; ++i) record.u8(static_cast<std::uint8_t>(bits.bits(8)));
  record.u16(0xF000);
  record.u8(0xFC);
  record.u8(static_cast<std::uint8_t>(0xFCU | sps.chromaFormat));
  for (int plane = 0; plane < 2; ++plane) {
    record.u8(static_cast<std::uint8_t>(0xF8U | (sps.bitDepth - 8)));
  }
  record.u16(0);
  record.u8(static_cast<std::uint8_t>(layers << 3U | nested << 2U | (lengthBytes - 1)));
  record.u8(static_cast<std::uint8_t>(sets.size()));
  for (const auto& kind : sets) {
    record.u8(static_cast<std::uint8_t>(0x80 | typeOf(kind.front(), Codec::hevc)));
    record.u16(static_cast<std::uint16_t>(kind.size()));
    for (const View unit : kind) {
      record.u16(static_cast<std::uint16_t>(unit.size()));
      record.bytes(unit);
    }
  }
  return record.take();
}

}  // namespace

std::optional<CarriedSets> CarriedSets::of(const SampleList& pictures, const ByteSource& source,
                                           const NALFormat& format) {
  constexpr std::size_t enough = 8;
  if (format.lengthSize != lengthBytes) {
    return std::nullopt;
  }
  std::vector<Sample> keys;
  for (const SampleRun& run : pictures.runs()) {
    if (run.first.isSync) keys.push_back(run.first);
  }
  Ballot ballot;
  const std::size_t looks = std::min(enough, keys.size());
  for (std::size_t i = 0; i < looks; ++i) {
    const Sample& key = keys[i * keys.size() / looks];
    auto sets = setsAhead(source.read(key.offset, std::min<std::size_t>(key.size, mostAhead)),
                          format.codec);
    ballot.add(sets ? std::move(*sets) : CarriedSets());
  }
  auto sets = ballot.mostFrequent();
  return sets && !sets->units.empty() ? std::move(sets) : std::nullopt;
}

std::optional<CarriedSets> CarriedSets::search(const ByteSource& source, std::uint64_t from,
                                               const NALFormat& format, const StopToken& stop) {
  constexpr std::uint64_t searched = std::uint64_t{64} << 20U;
  constexpr std::size_t piece = std::size_t{1} << 20U;
  constexpr std::size_t enough = 8;
  // Noise reads as the first of the sets once in billions of bytes.
  constexpr int mostTries = 1 << 16;
  int tries = 0;
  Ballot ballot;
  const std::uint64_t end = std::min(source.size(), from + searched);
  for (std::uint64_t at = from; format.lengthSize == lengthBytes && at < end; at += piece) {
    stop.check();
    const Bytes bytes = source.read(at, piece + mostAhead);
    for (std::size_t i = 0; i < piece && i + lengthBytes + 2 < bytes.size(); ++i) {
      if (!mayOpen(bytes, i, format.codec)) continue;
      auto sets = setsAhead(View(bytes).subspan(i).first(std::min(mostAhead, bytes.size() - i)),
                            format.codec);
      if (sets) ballot.add(std::move(*sets));
      if (ballot.total() == enough || ++tries == mostTries) return ballot.mostFrequent();
    }
  }
  return ballot.mostFrequent();
}

ParameterSets CarriedSets::read(Codec codec) const {
  ParameterSets sets;
  for (const Bytes& unit : units) sets.add(unit, codec);
  return sets;
}

bool CarriedSets::areIn(View sampleEntry, Codec codec) const {
  const auto places = parameterUnits(sampleEntry, codec);
  return std::all_of(units.begin(), units.end(), [&](const Bytes& unit) {
    return std::any_of(places.begin(), places.end(), [&](const UnitPlace& place) {
      const View known = sampleEntry.subspan(place.at, place.size);
      return std::equal(known.begin(), known.end(), unit.begin(), unit.end());
    });
  });
}

std::optional<Bytes> CarriedSets::describe(View sampleEntry, Codec codec) const {
  // ISO/IEC 14496-12 §12.1.3: behind the box's header, its index and what is reserved.
  constexpr std::size_t sizeAt = 32;
  constexpr std::size_t fields = 86;
  const auto place = configurationRecord(sampleEntry, codec);
  const ParameterSets known = read(codec);
  if (!place || *place < fields + 8 || known.sequences.empty()) {
    return std::nullopt;
  }
  const std::size_t box = *place - 8;
  const auto boxSize = bigEndian<std::uint32_t>(sampleEntry, box);
  const bool isWhole = bigEndian<std::uint32_t>(sampleEntry, 0) == sampleEntry.size() &&
                       boxSize >= 8 && boxSize <= sampleEntry.size() - box;
  if (!isWhole) {
    return std::nullopt;
  }
  std::vector<std::vector<View>> sets;
  for (const int type : setTypes(codec)) {
    auto& kind = sets.emplace_back();
    for (const Bytes& unit : units) {
      if (typeOf(unit, codec) == type) kind.emplace_back(unit);
    }
  }
  const SequenceParameters& sps = known.sequences.begin()->second;
  const Bytes record = codec == Codec::h264 ? recordH264(sets, sps) : recordHEVC(sets, sps);
  const View rest = sampleEntry.subspan(box + boxSize);
  BoxWriter entry;
  entry.u32(static_cast<std::uint32_t>(box + 8 + record.size() + rest.size()));
  entry.bytes(sampleEntry.subspan(4, sizeAt - 4));
  entry.u16(static_cast<std::uint16_t>(sps.shownWidth));
  entry.u16(static_cast<std::uint16_t>(sps.shownHeight));
  entry.bytes(sampleEntry.subspan(sizeAt + 4, box - sizeAt - 4));
  entry.u32(static_cast<std::uint32_t>(record.size() + 8));
  entry.bytes(sampleEntry.subspan(box + 4, 4));
  entry.bytes(record);
  entry.bytes(rest);
  return entry.take();
}

}  // namespace tallowmark
