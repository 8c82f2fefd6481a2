// SPDX-License-Identifier: GPL-3.0-or-later
// Any bytes as parameter sets, in a stream and in a sample entry. What reads has the widths that
// the standards allow, and reads the same alone.
#include <cstdlib>

#include "ByteStream.h"
#include "MediaKit/Bitstream/ParameterSetWriting.h"
#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Bitstream/Reordering.h"

namespace {

using namespace tallowmark;

void require(bool holds) {
  if (!holds) std::abort();
}

void checkSets(const ParameterSets& sets) {
  for (const auto& [id, sps] : sets.sequences) {
    require(sps.frameNumBits <= 16 && sps.orderBits <= 16 && sps.segmentAddressBits <= 32);
    require(sps.orderCycle.offsetsForReferences.size() <= 255);
  }
  for (const auto& [id, pps] : sets.pictures) {
    const SequenceParameters* sps = sets.sequenceOf(id);
    require(sps == nullptr || sets.sequences.contains(pps.sequence));
  }
}

// What allows more pictures to be held back has as many sets, and allows them.
void checkReordering(std::span<const std::uint8_t> entry, NALFormat::Codec codec,
                     std::size_t pictures) {
  const auto before = parameterUnits(entry, codec);
  const auto allowing = allowingReordering(entry, codec, pictures);
  const auto after = parameterUnits(allowing, codec);
  require(after.size() == before.size());
  require(allowingReordering(allowing, codec, pictures) == allowing);
  for (std::size_t i = 0; i < after.size(); ++i) {
    const auto unit = std::span(allowing).subspan(after[i].at, after[i].size);
    const auto limits = readOutputLimits(entry.subspan(before[i].at, before[i].size), codec);
    require(!limits || readOutputLimits(unit, codec));
  }
}

}  // namespace

// The input: a byte that chooses the codec, then a byte stream, which is a sample entry as well.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  const auto codec = (data[0] & 1U) == 0 ? NALFormat::Codec::h264 : NALFormat::Codec::hevc;
  const std::span<const std::uint8_t> input(data + 1, size - 1);
  checkSets(ParameterSets::of(input, codec));
  checkReordering(input, codec, data[0] >> 4U);
  ParameterSets sets;
  for (const auto unit : unitsOf(input)) {
    sets.add(unit, codec);
    if (const auto numbering = readNumbering(unit)) {
      const auto written =
          withNumbers(unit, NALFormat::Codec::h264, *numbering, numbering->numbers);
      const auto again = readNumbering(written);
      // A unit that ends in zeros has no end of its own, and loses them.
      require(!again || again->numbers == numbering->numbers);
    }
    if (const auto sps = readSequenceParameters(unit, codec)) {
      require(readSequenceParameters(unit, codec) == sps);
    }
  }
  checkSets(sets);
  return 0;
}
