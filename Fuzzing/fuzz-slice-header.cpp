// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes as a stream of parameter sets and slices. A header that reads lies inside its unit, has
// fields of the widths its sets give, and counts on without overflow.
#include <cstdlib>

#include "ByteStream.h"
#include "MediaKit/Bitstream/PictureOrderCount.h"
#include "MediaKit/Bitstream/ReferenceWindow.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void checkWhole(std::span<const std::uint8_t> unit, const tallowmark::ParameterSets& sets,
                tallowmark::ReferenceWindow& window, std::int64_t order) {
  const auto header = tallowmark::readWholeSliceHeader(unit, sets);
  if (!header) {
    return;
  }
  for (std::size_t list = 0; list < header->references.size(); ++list) {
    require(header->references.at(list) <= 16 && header->modifications.at(list).size() <= 16);
  }
  window.take(*header, order);
  require(window.contradicting() <= window.asked());
}

}  // namespace

// The input: a byte that chooses the codec, then a byte stream.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tallowmark;
  if (size == 0) {
    return 0;
  }
  const auto codec = (data[0] & 1U) == 0 ? NALFormat::Codec::h264 : NALFormat::Codec::hevc;
  ParameterSets sets;
  PictureOrderCount counter(codec);
  ReferenceWindow window(data[0] >> 4U, 4 + (data[0] >> 1U & 7U));
  for (const auto unit : unitsOf({data + 1, size - 1})) {
    sets.add(unit, codec);
    const auto slice = readSliceHeader(unit, sets, codec);
    if (!slice) {
      continue;
    }
    const SequenceParameters* sps = sets.sequenceOf(slice->pictureSet);
    require(sps != nullptr);
    require(slice->bitsRead <= unit.size() * 8);
    require(!slice->order || *slice->order >> sps->orderBits == 0);
    require(slice->frameNumber >> sps->frameNumBits == 0);
    const auto header = static_cast<std::uint16_t>(
        codec == NALFormat::Codec::h264 ? unit[0] : unit[0] << 8U | unit[1]);
    const std::int64_t order = counter.next(*slice, header, *sps);
    if (codec == NALFormat::Codec::h264) {
      checkWhole(unit, sets, window, order);
    }
  }
  return 0;
}
