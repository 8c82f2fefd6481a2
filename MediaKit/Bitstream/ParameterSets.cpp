// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/ParameterSets.h"

#include <algorithm>
#include <array>
#include <bit>
#include <utility>

#include "MediaKit/Bitstream/BitReader.h"
#include "MediaKit/Bitstream/ClockHEVC.h"
#include "MediaKit/Bitstream/VideoUsability.h"
#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {

namespace {

using ByteSpan = std::span<const std::uint8_t>;
using NumberedSequence = std::pair<std::uint32_t, SequenceParameters>;
using NumberedPicture = std::pair<std::uint32_t, PictureParameters>;

/// A sequence parameter set as it was read.
struct SequenceRead {
  std::uint32_t id = 0;
  SequenceParameters parameters;
  std::optional<CodedNumbers> limits;
  std::optional<CodedNumbers> numbering;
  std::optional<double> tick;
};

// What is shown of a picture (H.264 §7.4.2.1.1, H.265 §7.4.3.2.1): offsets from left, right, top
// and bottom follow where a flag says so, in chroma samples.
void readCropping(BitReader& bits, SequenceParameters& sps) {
  const bool isField = !sps.framesOnly;
  const bool hasChroma = sps.chromaFormat == 1 || sps.chromaFormat == 2;
  const std::uint32_t stepX = hasChroma ? 2 : 1;
  const std::uint32_t stepY = (sps.chromaFormat == 1 ? 2U : 1U) * (isField ? 2U : 1U);
  std::array<std::uint32_t, 4> offsets{};
  if (bits.flag()) {
    for (std::uint32_t& offset : offsets) offset = bits.ue();
  }
  const auto shown = [](std::uint32_t all, std::uint64_t step, std::uint64_t a, std::uint64_t b) {
    const std::uint64_t cut = step * (a + b);
    return cut < all ? static_cast<std::uint32_t>(all - cut) : all;
  };
  sps.shownWidth = shown(sps.width, stepX, offsets[0], offsets[1]);
  sps.shownHeight = shown(sps.height, stepY, offsets[2], offsets[3]);
}

// H.264 §7.3.2.1.1.1
void skipScalingList(BitReader& bits, int size) {
  int last = 8;
  int next = 8;
  for (int i = 0; i < size && bits.ok(); ++i) {
    if (next != 0) {
      next = (last + bits.se() % 256 + 256) % 256;
    }
    last = next == 0 ? last : next;
  }
}

void readHighProfileH264(BitReader& bits, SequenceParameters& sps) {
  sps.chromaFormat = bits.ue();
  if (sps.chromaFormat == 3) {
    sps.separateColourPlanes = bits.flag();
  }
  sps.bitDepth = 8 + bits.ue();
  bits.ue();
  bits.bit();
  if (bits.flag()) {
    for (int list = 0; list < (sps.chromaFormat == 3 ? 12 : 8); ++list) {
      if (bits.flag()) {
        skipScalingList(bits, list < 6 ? 16 : 64);
      }
    }
  }
}

void readOrderH264(BitReader& bits, SequenceParameters& sps) {
  sps.orderType = bits.ue();
  if (sps.orderType == 0) {
    sps.orderBits = bits.ue() + 4;
  } else if (sps.orderType == 1) {
    sps.orderCycle.alwaysAsExpected = bits.flag();
    sps.orderCycle.offsetForNonReference = bits.se();
    bits.se();
    for (std::uint32_t count = std::min(bits.ue(), std::uint32_t{255}); count > 0; --count) {
      sps.orderCycle.offsetsForReferences.push_back(bits.se());
    }
  }
}

// H.264 §E.1.2
void skipDecoderBuffer(BitReader& bits) {
  const std::uint32_t schedules = std::min(bits.ue(), std::uint32_t{31}) + 1;
  bits.skip(8);
  for (std::uint32_t i = 0; i < schedules; ++i) {
    bits.ue();
    bits.ue();
    bits.bit();
  }
  bits.skip(20);
}

// H.264 §E.1.1
std::optional<CodedNumbers> readUsabilityH264(BitReader& bits, std::optional<double>& tick) {
  skipVideoSignal(bits);
  tick = readClock(bits);
  const bool units = bits.flag();
  if (units) skipDecoderBuffer(bits);
  const bool slices = bits.flag();
  if (slices) skipDecoderBuffer(bits);
  bits.skip(units || slices ? 2 : 1);
  if (!bits.flag()) {
    return std::nullopt;
  }
  bits.bit();
  for (int field = 0; field < 4; ++field) bits.ue();
  CodedNumbers limits{bits.position(), 0, {}};
  limits.numbers.push_back(bits.ue());
  limits.numbers.push_back(bits.ue());
  limits.endBit = bits.position();
  return bits.ok() && limits.numbers.front() <= 16 ? std::optional(limits) : std::nullopt;
}

std::optional<SequenceRead> readSequenceH264(ByteSpan unit) {
  static constexpr std::array<std::uint32_t, 13> highProfiles{100, 110, 122, 244, 44,  83, 86,
                                                              118, 128, 138, 139, 134, 135};
  BitReader bits(unit.subspan(1));
  SequenceParameters sps;
  sps.profile = bits.bits(8);
  bits.skip(16);
  const std::uint32_t id = bits.ue();
  if (std::find(highProfiles.begin(), highProfiles.end(), sps.profile) != highProfiles.end()) {
    readHighProfileH264(bits, sps);
  }
  CodedNumbers numbering{bits.position(), 0, {}};
  sps.frameNumBits = bits.ue() + 4;
  readOrderH264(bits, sps);
  numbering.numbers = {sps.frameNumBits - 4, sps.orderType};
  if (sps.orderType == 0) numbering.numbers.push_back(sps.orderBits - 4);
  numbering.numbers.push_back(bits.ue());
  numbering.endBit = bits.position();
  bits.bit();
  sps.width = (bits.ue() + 1) * 16;
  const std::uint32_t mapUnits = bits.ue() + 1;
  sps.framesOnly = bits.flag();
  sps.height = mapUnits * (sps.framesOnly ? 16 : 32);
  const bool sane = id < 32 && sps.chromaFormat < 4 && sps.frameNumBits <= 16 &&
                    sps.orderType < 3 && sps.orderBits <= 16;
  if (!bits.ok() || !sane) {
    return std::nullopt;
  }
  bits.bit();
  readCropping(bits, sps);
  std::optional<double> tick;
  const auto limits = bits.flag() ? readUsabilityH264(bits, tick) : std::nullopt;
  if (limits) {
    sps.mostReordered = limits->numbers.front();
  }
  return SequenceRead{id, sps, limits, sps.orderType == 1 ? std::nullopt : std::optional(numbering),
                      tick};
}

std::optional<SliceTailParameters> readSliceTail(BitReader& bits) {
  SliceTailParameters tail;
  tail.arithmeticCoding = bits.flag();
  tail.countsBottomFields = bits.flag();
  if (bits.ue() > 0) {
    return std::nullopt;
  }
  tail.referencesAtBit = bits.position();
  for (std::uint32_t& references : tail.references) references = bits.ue() + 1;
  tail.weightsAtBit = bits.position();
  tail.weighsP = bits.flag();
  tail.weighsB = bits.bits(2);
  // §7.4.2.2; more for samples of more bits, 14 at most
  constexpr std::int32_t leastChange = -(26 + 36);
  constexpr std::int32_t mostChange = 25;
  const std::int32_t change = bits.se();
  if (change < leastChange || change > mostChange) {
    return std::nullopt;
  }
  tail.quantizer = 26 + change;
  bits.se();
  bits.se();
  tail.controlsDeblocking = bits.flag();
  bits.bit();
  tail.hasRedundantPictures = bits.flag();
  return bits.ok() ? std::optional(tail) : std::nullopt;
}

std::optional<NumberedPicture> readPictureH264(ByteSpan unit) {
  BitReader bits(unit.subspan(1));
  const std::uint32_t id = bits.ue();
  PictureParameters pps;
  pps.sequence = bits.ue();
  const bool sane = bits.ok() && id < 256 && pps.sequence < 32;
  pps.tail = readSliceTail(bits);
  return sane ? std::optional(NumberedPicture(id, pps)) : std::nullopt;
}

// H.265 §7.3.3, with profile_present set.
std::uint32_t readProfileTierLevel(BitReader& bits, unsigned subLayersMinusOne) {
  bits.skip(3);
  const std::uint32_t profile = bits.bits(5);
  bits.skip(32 + 48);
  std::array<std::pair<bool, bool>, 8> present{};
  bits.skip(8);
  for (unsigned i = 0; i < subLayersMinusOne; ++i) {
    present.at(i).first = bits.flag();
    present.at(i).second = bits.flag();
  }
  if (subLayersMinusOne > 0) {
    bits.skip(std::size_t{2} * (8 - subLayersMinusOne));
  }
  for (unsigned i = 0; i < subLayersMinusOne; ++i) {
    bits.skip((present.at(i).first ? 88U : 0U) + (present.at(i).second ? 8U : 0U));
  }
  return profile;
}

// H.265 §7.3.2.1, §7.3.2.2: the same in both sets.
CodedNumbers readLimitsHEVC(BitReader& bits, std::uint32_t subLayersMinusOne) {
  const bool allSubLayers = bits.flag();
  CodedNumbers limits{bits.position(), 0, {}};
  for (std::uint32_t i = allSubLayers ? 0 : subLayersMinusOne; i <= subLayersMinusOne; ++i) {
    for (int number = 0; number < 3; ++number) limits.numbers.push_back(bits.ue());
  }
  limits.endBit = bits.position();
  return limits;
}

// H.265 §7.3.2.1
std::optional<CodedNumbers> readVideoLimitsHEVC(ByteSpan unit) {
  BitReader bits(unit.subspan(2));
  bits.skip(12);
  const std::uint32_t subLayersMinusOne = bits.bits(3);
  bits.skip(17);
  readProfileTierLevel(bits, subLayersMinusOne);
  const CodedNumbers limits = readLimitsHEVC(bits, subLayersMinusOne);
  return bits.ok() ? std::optional(limits) : std::nullopt;
}

std::optional<SequenceRead> readSequenceHEVC(ByteSpan unit) {
  BitReader bits(unit.subspan(2));
  SequenceParameters sps;
  bits.skip(4);
  const std::uint32_t subLayersMinusOne = bits.bits(3);
  bits.bit();
  sps.profile = readProfileTierLevel(bits, subLayersMinusOne);
  const std::uint32_t id = bits.ue();
  sps.chromaFormat = bits.ue();
  if (sps.chromaFormat == 3) {
    sps.separateColourPlanes = bits.flag();
  }
  sps.width = bits.ue();
  sps.height = bits.ue();
  readCropping(bits, sps);
  sps.bitDepth = 8 + bits.ue();
  bits.ue();
  sps.orderBits = bits.ue() + 4;
  const CodedNumbers limits = readLimitsHEVC(bits, subLayersMinusOne);
  sps.mostReordered = *(limits.numbers.end() - 2);
  const std::uint32_t treeBlockBits = bits.ue() + 3 + bits.ue();
  const bool sane = bits.ok() && id < 16 && sps.chromaFormat < 4 && sps.orderBits <= 16 &&
                    treeBlockBits <= 8 && sps.width > 0 && sps.height > 0 && sps.width <= 65535 &&
                    sps.height <= 65535;
  if (!sane) {
    return std::nullopt;
  }
  const std::uint32_t block = 1U << treeBlockBits;
  const std::uint32_t blocks =
      ((sps.width + block - 1) / block) * ((sps.height + block - 1) / block);
  sps.segmentAddressBits = static_cast<unsigned>(std::bit_width(blocks - 1));
  return SequenceRead{id, sps, limits, {}, readClockTickHEVC(bits, sps.orderBits)};
}

std::optional<NumberedPicture> readPictureHEVC(ByteSpan unit) {
  BitReader bits(unit.subspan(2));
  const std::uint32_t id = bits.ue();
  PictureParameters pps;
  pps.sequence = bits.ue();
  pps.dependentSegments = bits.flag();
  pps.outputFlag = bits.flag();
  pps.extraHeaderBits = bits.bits(3);
  const bool sane = bits.ok() && id < 64 && pps.sequence < 16;
  return sane ? std::optional(NumberedPicture(id, pps)) : std::nullopt;
}

// Finds `count` units behind 16-bit lengths from `at` on; returns the position behind them.
std::size_t findUnits(std::vector<UnitPlace>& found, ByteSpan entry, std::size_t at,
                      unsigned count) {
  for (; count > 0 && at + 2 <= entry.size(); --count) {
    const std::size_t length = bigEndian<std::uint16_t>(entry, at);
    at += 2;
    if (length > entry.size() - at) {
      return entry.size();
    }
    found.push_back({at, length});
    at += length;
  }
  return at;
}

std::optional<SequenceRead> readSequence(ByteSpan unit, NALFormat::Codec codec) {
  if (unit.size() < 4) {
    return std::nullopt;
  }
  return codec == NALFormat::Codec::h264 ? readSequenceH264(unit) : readSequenceHEVC(unit);
}

int unitType(ByteSpan unit, NALFormat::Codec codec) {
  return codec == NALFormat::Codec::h264 ? unit[0] & 31 : (unit[0] >> 1) & 63;
}

}  // namespace

std::optional<NumberedSequence> readSequenceParameters(ByteSpan unit, NALFormat::Codec codec) {
  const auto read = readSequence(unit, codec);
  return read ? std::optional(NumberedSequence(read->id, read->parameters)) : std::nullopt;
}

std::optional<CodedNumbers> readNumbering(ByteSpan unit) {
  const bool isSequence = unit.size() >= 4 && unitType(unit, NALFormat::Codec::h264) == 7;
  const auto read = isSequence ? readSequenceH264(unit) : std::nullopt;
  return read ? read->numbering : std::nullopt;
}

std::optional<CodedNumbers> readOutputLimits(ByteSpan unit, NALFormat::Codec codec) {
  constexpr int sequenceH264 = 7;
  constexpr int videoHEVC = 32;
  constexpr int sequenceHEVC = 33;
  if (unit.size() < 4) {
    return std::nullopt;
  }
  const int type = unitType(unit, codec);
  if (codec == NALFormat::Codec::hevc && type == videoHEVC) {
    return readVideoLimitsHEVC(unit);
  }
  const bool isSequence = type == (codec == NALFormat::Codec::h264 ? sequenceH264 : sequenceHEVC);
  const auto read = isSequence ? readSequence(unit, codec) : std::nullopt;
  return read ? read->limits : std::nullopt;
}

std::optional<double> readClockTick(ByteSpan unit, NALFormat::Codec codec) {
  const int sequence = codec == NALFormat::Codec::h264 ? 7 : 33;
  const bool isSequence = unit.size() >= 4 && unitType(unit, codec) == sequence;
  const auto read = isSequence ? readSequence(unit, codec) : std::nullopt;
  return read ? read->tick : std::nullopt;
}

std::vector<UnitPlace> parameterUnits(ByteSpan sampleEntry, NALFormat::Codec codec) {
  std::vector<UnitPlace> found;
  const auto record = configurationRecord(sampleEntry, codec);
  if (!record) {
    return found;
  }
  const std::size_t end = *record - 8 + bigEndian<std::uint32_t>(sampleEntry, *record - 8);
  if (end >= *record && end < sampleEntry.size()) {
    sampleEntry = sampleEntry.first(end);
  }
  const std::size_t size = sampleEntry.size() - *record;
  if (codec == NALFormat::Codec::h264 && size > 6) {
    const std::size_t pictures =
        findUnits(found, sampleEntry, *record + 6, sampleEntry[*record + 5] & 31U);
    if (pictures < sampleEntry.size()) {
      findUnits(found, sampleEntry, pictures + 1, sampleEntry[pictures]);
    }
  } else if (codec == NALFormat::Codec::hevc && size > 22) {
    std::size_t at = *record + 23;
    for (unsigned arrays = sampleEntry[*record + 22]; arrays > 0 && at + 3 <= sampleEntry.size();
         --arrays) {
      at = findUnits(found, sampleEntry, at + 3, bigEndian<std::uint16_t>(sampleEntry, at + 1));
    }
  }
  return found;
}

ParameterSets ParameterSets::of(ByteSpan sampleEntry, NALFormat::Codec codec) {
  ParameterSets sets;
  for (const UnitPlace& unit : parameterUnits(sampleEntry, codec)) {
    sets.add(sampleEntry.subspan(unit.at, unit.size), codec);
  }
  return sets;
}

void ParameterSets::add(ByteSpan unit, NALFormat::Codec codec) {
  if (unit.size() < 3) {
    return;
  }
  const bool h264 = codec == NALFormat::Codec::h264;
  const int type = unitType(unit, codec);
  if (type == (h264 ? 7 : 33)) {
    if (const auto sps = readSequenceParameters(unit, codec)) {
      sequences[sps->first] = sps->second;
    }
  } else if (type == (h264 ? 8 : 34)) {
    if (const auto pps = h264 ? readPictureH264(unit) : readPictureHEVC(unit)) {
      pictures[pps->first] = pps->second;
    }
  }
}

const PictureParameters* ParameterSets::picture(std::uint32_t id) const {
  const auto found = pictures.find(id);
  return found == pictures.end() ? nullptr : &found->second;
}

const SequenceParameters* ParameterSets::sequenceOf(std::uint32_t pictureId) const {
  const PictureParameters* pps = picture(pictureId);
  const auto found = pps == nullptr ? sequences.end() : sequences.find(pps->sequence);
  return found == sequences.end() ? nullptr : &found->second;
}

}  // namespace tallowmark
