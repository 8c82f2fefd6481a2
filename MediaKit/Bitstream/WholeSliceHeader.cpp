// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/WholeSliceHeader.h"

#include "MediaKit/Bitstream/BitReader.h"

namespace tallowmark {

namespace {

// Table 7-6
constexpr std::uint32_t sliceP = 0;
constexpr std::uint32_t sliceB = 1;
constexpr std::uint32_t sliceI = 2;
// §7.4.3: for frames
constexpr std::uint32_t mostReferences = 16;
constexpr std::int64_t mostQuantizer = 51;

bool isWithin(std::int64_t value, std::int64_t least, std::int64_t most) {
  return value >= least && value <= most;
}

/// Reads on behind the order count and tells whether that could be a header.
class TailReader {
 public:
  TailReader(BitReader& bits, const SequenceParameters& sps, const SliceTailParameters& tail,
             WholeSliceHeader& header)
      : bits_(bits), sps_(sps), tail_(tail), header_(header), type_(header.start.type % 5) {}

  bool read() {
    readCounts();
    return readLists() && readWeights() && readMarkings() && readQuantizer() && readDeblocking() &&
           endsWell();
  }

 private:
  bool isInter() const { return type_ == sliceP || type_ == sliceB; }
  std::size_t lists() const { return type_ == sliceB ? 2 : type_ == sliceP ? 1 : 0; }

  void readCounts();
  bool readLists();
  bool readModifications(std::vector<ReferenceOperation>& list);
  bool readWeights();
  bool readWeight();
  bool readMarkings();
  bool readQuantizer();
  bool readDeblocking();
  bool endsWell();
  bool endsOnWholeByte();
  bool leadsToBlock();

  BitReader& bits_;
  const SequenceParameters& sps_;
  const SliceTailParameters& tail_;
  WholeSliceHeader& header_;
  std::uint32_t type_;
};

void TailReader::readCounts() {
  const bool byCycle = sps_.orderType == 1 && !sps_.orderCycle.alwaysAsExpected;
  if (tail_.countsBottomFields && (sps_.orderType == 0 || byCycle)) bits_.se();
  if (tail_.hasRedundantPictures) bits_.ue();
  if (type_ == sliceB) bits_.bit();
}

bool TailReader::readLists() {
  header_.tellsReferences = isInter() && bits_.flag();
  for (std::size_t list = 0; list < lists(); ++list) {
    header_.references.at(list) =
        header_.tellsReferences ? bits_.ue() + 1 : tail_.references.at(list);
    if (header_.references.at(list) > mostReferences) {
      return false;
    }
  }
  for (std::size_t list = 0; list < lists(); ++list) {
    if (bits_.flag() && !readModifications(header_.modifications.at(list))) {
      return false;
    }
  }
  return bits_.ok();
}

// §7.4.3.1
bool TailReader::readModifications(std::vector<ReferenceOperation>& list) {
  constexpr std::uint32_t end = 3;
  for (std::uint32_t code = bits_.ue(); code != end; code = bits_.ue()) {
    const ReferenceOperation operation{code, bits_.ue() + 1};
    if (code > end || list.size() == mostReferences || !bits_.ok() ||
        operation.distance > std::uint32_t{1} << sps_.frameNumBits) {
      return false;
    }
    list.push_back(operation);
  }
  return bits_.ok() && !list.empty();
}

// §7.4.3.2
bool TailReader::readWeight() {
  const std::int32_t weight = bits_.se();
  const std::int32_t offset = bits_.se();
  return isWithin(weight, -128, 127) && isWithin(offset, -128, 127);
}

bool TailReader::readWeights() {
  const bool areTold =
      (tail_.weighsP && type_ == sliceP) || (tail_.weighsB == 1 && type_ == sliceB);
  if (!areTold) {
    return true;
  }
  constexpr std::uint32_t mostPrecise = 7;
  const bool hasColour = sps_.chromaFormat != 0 && !sps_.separateColourPlanes;
  if (bits_.ue() > mostPrecise || (hasColour && bits_.ue() > mostPrecise)) {
    return false;
  }
  for (std::size_t list = 0; list < lists(); ++list) {
    for (std::uint32_t i = 0; i < header_.references.at(list); ++i) {
      const bool isLight = !bits_.flag() || readWeight();
      const bool isColour = !hasColour || !bits_.flag() || (readWeight() && readWeight());
      if (!isLight || !isColour || !bits_.ok()) {
        return false;
      }
    }
  }
  return true;
}

// §7.4.3.3
bool TailReader::readMarkings() {
  if (!header_.start.isReference) {
    return true;
  }
  if (header_.start.resetsOrder) {
    bits_.skip(2);
    return true;
  }
  if (!bits_.flag()) {
    return true;
  }
  constexpr std::size_t most = 64;
  for (std::uint32_t code = bits_.ue(); code != 0; code = bits_.ue()) {
    ReferenceOperation operation{code, 0};
    if (code == 1 || code == 3) operation.distance = bits_.ue() + 1;
    if (code == 2 || code == 3 || code == 6 || code == 4) bits_.ue();
    if (code > 6 || !bits_.ok() || header_.markings.size() == most) {
      return false;
    }
    header_.markings.push_back(operation);
  }
  return bits_.ok();
}

bool TailReader::readQuantizer() {
  constexpr std::uint32_t mostTables = 2;
  if (tail_.arithmeticCoding && isInter() && bits_.ue() > mostTables) {
    return false;
  }
  const std::int64_t quantizer = std::int64_t{tail_.quantizer} + bits_.se();
  const std::int64_t least = -6 * (std::int64_t{sps_.bitDepth} - 8);
  return isWithin(quantizer, least, mostQuantizer);
}

bool TailReader::readDeblocking() {
  if (!tail_.controlsDeblocking) {
    return true;
  }
  const std::uint32_t off = bits_.ue();
  if (off == 1) {
    return true;
  }
  constexpr std::int32_t most = 6;
  return off <= 2 && isWithin(bits_.se(), -most, most) && isWithin(bits_.se(), -most, most);
}

bool TailReader::endsWell() {
  return tail_.arithmeticCoding ? endsOnWholeByte() : leadsToBlock();
}

bool TailReader::endsOnWholeByte() {
  while (bits_.position() % 8 != 0) {
    if (!bits_.flag()) {
      return false;
    }
  }
  return bits_.ok();
}

// §7.3.4, §7.3.5: the blocks left out and the type of the next one.
bool TailReader::leadsToBlock() {
  constexpr std::uint32_t intraTypes = 26;
  const std::uint32_t interTypes = type_ == sliceP ? 5 : type_ == sliceB ? 23 : 0;
  const std::uint32_t blocks = (sps_.width / 16) * (sps_.height / 16);
  if (isInter()) {
    const std::uint32_t skipped = bits_.ue();
    if (skipped >= blocks) {
      return bits_.ok() && skipped == blocks;
    }
  }
  return bits_.ue() < interTypes + intraTypes && bits_.ok();
}

}  // namespace

std::optional<WholeSliceHeader> readWholeSliceHeader(std::span<const std::uint8_t> unit,
                                                     const ParameterSets& sets) {
  const auto start = readSliceHeader(unit, sets, NALFormat::Codec::h264);
  if (!start || start->isField || start->type % 5 > sliceI) {
    return std::nullopt;
  }
  const PictureParameters* pps = sets.picture(start->pictureSet);
  const SequenceParameters* sps = sets.sequenceOf(start->pictureSet);
  if (!pps->tail || sps == nullptr) {
    return std::nullopt;
  }
  WholeSliceHeader header{*start, {}, false, {}, {}};
  BitReader bits(unit.subspan(1));
  bits.skip(start->bitsRead);
  return TailReader(bits, *sps, *pps->tail, header).read() ? std::optional(header) : std::nullopt;
}

}  // namespace tallowmark
