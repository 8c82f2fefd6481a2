// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/SliceHeader.h"

#include "MediaKit/Bitstream/BitReader.h"

namespace tallowmark {

namespace {

using UnitBytes = std::span<const std::uint8_t>;

std::optional<SliceHeader> readH264(UnitBytes unit, const ParameterSets& sets) {
  BitReader bits(unit.subspan(1));
  SliceHeader slice;
  const int unitType = unit[0] & 31;
  slice.isReference = (unit[0] & 0x60U) != 0;
  slice.resetsOrder = unitType == 5;
  const std::uint32_t firstBlock = bits.ue();
  slice.firstInPicture = firstBlock == 0;
  slice.type = bits.ue();
  slice.pictureSet = bits.ue();
  const SequenceParameters* sps = sets.sequenceOf(slice.pictureSet);
  if (!bits.ok() || slice.type > 9 || sps == nullptr) {
    return std::nullopt;
  }
  if (sps->separateColourPlanes) {
    bits.skip(2);
  }
  slice.frameNumber = bits.bits(sps->frameNumBits);
  if (!sps->framesOnly) {
    slice.isField = bits.flag();
    slice.isBottomField = slice.isField && bits.flag();
  }
  // §7.4.3: an IDR picture is a reference, its number is 0 and its slices are intra coded.
  const std::uint32_t kind = slice.type % 5;
  if (slice.resetsOrder) {
    const std::uint32_t idrNumber = bits.ue();
    if (slice.frameNumber != 0 || idrNumber > 65535 || !slice.isReference ||
        (kind != 2 && kind != 4)) {
      return std::nullopt;
    }
  }
  if (sps->orderType == 0) {
    slice.order = bits.bits(sps->orderBits);
  } else if (sps->orderType == 1 && !sps->orderCycle.alwaysAsExpected) {
    slice.orderCorrection = bits.se();
  }
  const std::uint32_t blocks = (sps->width / 16) * (sps->height / 16);
  if (!bits.ok() || firstBlock >= blocks) {
    return std::nullopt;
  }
  slice.bitsRead = bits.position();
  return slice;
}

std::optional<SliceHeader> readHEVC(UnitBytes unit, const ParameterSets& sets) {
  BitReader bits(unit.subspan(2));
  SliceHeader slice;
  const int unitType = (unit[0] >> 1) & 63;
  const bool randomAccess = unitType >= 16 && unitType <= 23;
  const bool isIDR = unitType == 19 || unitType == 20;
  // Table 7-1: even types below 16 are sub-layer non-reference pictures.
  slice.isReference = unitType >= 16 || unitType % 2 == 1;
  slice.resetsOrder = randomAccess && unitType != 21;
  slice.firstInPicture = bits.flag();
  if (randomAccess) {
    bits.bit();
  }
  slice.pictureSet = bits.ue();
  const PictureParameters* pps = sets.picture(slice.pictureSet);
  const SequenceParameters* sps = sets.sequenceOf(slice.pictureSet);
  if (!bits.ok() || sps == nullptr) {
    return std::nullopt;
  }
  if (!slice.firstInPicture) {
    slice.dependent = pps->dependentSegments && bits.flag();
    if (bits.bits(sps->segmentAddressBits) == 0) {
      return std::nullopt;  // address 0 is the first segment's
    }
  }
  if (!slice.dependent) {
    bits.skip(pps->extraHeaderBits);
    slice.type = bits.ue();
    if (slice.type > 2 || (randomAccess && slice.type != 2)) {
      return std::nullopt;
    }
    bits.skip((pps->outputFlag ? 1U : 0U) + (sps->separateColourPlanes ? 2U : 0U));
    slice.order = isIDR ? 0 : bits.bits(sps->orderBits);
  }
  slice.bitsRead = bits.position();
  return bits.ok() ? std::optional(slice) : std::nullopt;
}

}  // namespace

std::optional<SliceHeader> readSliceHeader(UnitBytes unit, const ParameterSets& sets,
                                           NALFormat::Codec codec) {
  if (unit.size() < 4) {
    return std::nullopt;
  }
  return codec == NALFormat::Codec::h264 ? readH264(unit, sets) : readHEVC(unit, sets);
}

}  // namespace tallowmark
