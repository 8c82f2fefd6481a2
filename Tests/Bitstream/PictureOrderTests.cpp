// SPDX-License-Identifier: GPL-3.0-or-later
// Counts of pictures in output order, worked out by hand from the standards' formulas.
#include <gtest/gtest.h>

#include <limits>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Bitstream/OutputOrder.h"
#include "MediaKit/Bitstream/PictureOrderCount.h"

namespace tallowmark {
namespace {

using Codec = NALFormat::Codec;

struct Picture {
  std::uint16_t header = 0;
  SliceHeader slice;
  std::int64_t count = 0;
};

SliceHeader slice(std::uint32_t low, bool isReference, bool resets = false,
                  std::uint32_t number = 0, std::int32_t correction = 0) {
  SliceHeader made;
  made.isReference = isReference;
  made.resetsOrder = resets;
  made.order = low;
  made.frameNumber = number;
  made.orderCorrection = correction;
  return made;
}

void expectCounts(Codec codec, const SequenceParameters& sps, std::initializer_list<Picture> list) {
  PictureOrderCount counter(codec);
  int number = 0;
  for (const Picture& picture : list) {
    EXPECT_EQ(counter.next(picture.slice, picture.header, sps), picture.count) << number;
    ++number;
  }
}

TEST(PictureOrder, highBitsFollowFromReferencePicturesInH264) {
  SequenceParameters sps;
  sps.orderBits = 4;
  expectCounts(Codec::h264, sps,
               {{0x65, slice(0, true, true), 0},
                {0x41, slice(8, true), 8},
                {0x01, slice(4, false), 4},
                {0x41, slice(0, true), 16},
                // Not predicted from: the next one still follows from 16.
                {0x01, slice(9, false), 9},
                {0x41, slice(6, true), 22},
                {0x01, slice(15, false), 15},
                {0x65, slice(0, true, true), 0}});
}

TEST(PictureOrder, leadingAndHigherLayersPredictNothingInHEVC) {
  SequenceParameters sps;
  sps.orderBits = 4;
  constexpr std::uint16_t trailing = 0x0201;
  constexpr std::uint16_t higherLayer = 0x0202;
  constexpr std::uint16_t skippedLeading = 0x1201;  // RASL_R
  expectCounts(Codec::hevc, sps,
               {{0x2601, slice(0, true, true), 0},
                {trailing, slice(7, true), 7},
                {higherLayer, slice(14, true), 14},
                {trailing, slice(14, true), 14},
                {skippedLeading, slice(4, true), 20},
                {trailing, slice(5, true), 21}});
}

TEST(PictureOrder, expectedCyclesAndFrameNumbersCountWithoutLowBits) {
  SequenceParameters cycle;
  cycle.orderType = 1;
  cycle.frameNumBits = 4;
  cycle.orderCycle = {false, -2, {4, 6}};
  expectCounts(Codec::h264, cycle,
               {{0x65, slice(0, true, true, 0), 0},
                {0x41, slice(0, true, false, 1), 4},
                {0x01, slice(0, false, false, 2), 2},
                {0x41, slice(0, true, false, 2), 10},
                {0x41, slice(0, true, false, 3, 1), 15},
                {0x41, slice(0, true, false, 15), 74},
                {0x41, slice(0, true, false, 0), 80}});
  SequenceParameters decoding;
  decoding.orderType = 2;
  decoding.frameNumBits = 4;
  expectCounts(Codec::h264, decoding,
               {{0x65, slice(0, true, true, 0), 0},
                {0x41, slice(0, true, false, 15), 30},
                {0x01, slice(0, false, false, 0), 31},
                {0x41, slice(0, true, false, 0), 32}});
}

Track trackOf(std::initializer_list<std::uint32_t> durations) {
  Track track;
  std::uint64_t offset = 0;
  for (const std::uint32_t duration : durations)
    track.samples.append({offset += 10, 10, duration, 0, false});
  return track;
}

TEST(PictureOrder, offsetsFollowFromPlacesAndDurations) {
  const std::vector<std::uint32_t> order{0, 2, 1, 3};
  struct Case {
    std::int32_t smallest;
    std::vector<std::int32_t> offsets;
    std::int64_t start;
  };
  for (const Case& c :
       {Case{-10, {0, 10, -10, 0}, 0}, {0, {10, 20, 0, 10}, 10}, {-30, {0, 10, -10, 0}, 0}}) {
    Track track = trackOf({10, 10, 10, 10});
    showInOrder(track, order, c.smallest);
    std::vector<std::int32_t> offsets;
    for (const Sample& sample : track.samples) offsets.push_back(sample.compositionOffset);
    EXPECT_EQ(offsets, c.offsets) << c.smallest;
    EXPECT_EQ(track.mediaStart, c.start) << c.smallest;
  }
  // A pause that no field can hold leaves all as it was.
  Track endless = trackOf({10, std::numeric_limits<std::uint32_t>::max(), 10, 10});
  const Track before = endless;
  showInOrder(endless, order, 0);
  EXPECT_EQ(endless.samples, before.samples);
  EXPECT_EQ(endless.mediaStart, 0);
}

TEST(PictureOrder, samplesThatCannotBeReadHaveNone) {
  const std::vector<std::uint8_t> rubbish(64, 0xFF);
  EXPECT_FALSE(outputOrder(trackOf({10, 10}).samples, MemorySource(rubbish), {}, {}));
}

}  // namespace
}  // namespace tallowmark
