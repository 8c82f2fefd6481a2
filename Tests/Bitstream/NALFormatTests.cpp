// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Bitstream/NALFormat.h"

#include <gtest/gtest.h>

#include "DeviceKit/MemorySource.h"
#include "MediaKit/Bitstream/EmulationRule.h"
#include "Tests/Support/Boxes.h"

namespace tallowmark {
namespace {

using testing::Bytes;
using testing::joined;
using testing::text;
using testing::u32;
using testing::zeros;

Bytes unitOf(const Bytes& body) {
  return joined({u32(static_cast<std::uint32_t>(body.size())), body});
}

TEST(NALFormat, readsLengthSizeFromTheConfigurationRecord) {
  struct Row {
    const char* label;
    FourCC codec;
    Bytes entry;
    std::optional<std::size_t> lengthSize;
  };
  const Bytes avc{1, 100, 0, 40};
  const std::vector<Row> rows{
      {"four", "avc1", joined({u32(15), text("avcC"), avc, {0xFF}}), 4},
      {"one", "avc3", joined({u32(15), text("avcC"), avc, {0xFC}}), 1},
      {"noRoomForASize", "avc1", joined({{0, 0, 0}, text("avcC"), avc, {0xFF}}), std::nullopt},
      {"recordTooShort", "avc1", joined({u32(15), text("avcC"), avc}), std::nullopt},
      {"hevc", "hvc1", joined({u32(31), text("hvcC"), zeros(21), {0xF1}}), 2},
      {"hevcTooShort", "hev1", joined({u32(31), text("hvcC"), zeros(21)}), std::nullopt},
      {"wrongRecord", "hvc1", joined({u32(15), text("avcC"), avc, {0xFF}}), std::nullopt},
      {"otherCodec", "mp4v", joined({u32(15), text("avcC"), avc, {0xFF}}), std::nullopt},
  };
  for (const Row& row : rows) {
    const auto format = NALFormat::of(row.entry, row.codec);
    ASSERT_EQ(format.has_value(), row.lengthSize.has_value()) << row.label;
    if (format) {
      EXPECT_EQ(format->lengthSize, *row.lengthSize) << row.label;
    }
  }
}

TEST(NALFormat, judgesUnitsByTheirFirstBytes) {
  struct Row {
    const char* label;
    NALFormat::Codec codec;
    Bytes bytes;
    bool accepted;
    bool isVCL = false;
    bool first = false;
    bool starts = false;
    bool key = false;
  };
  constexpr auto h264 = NALFormat::Codec::h264;
  constexpr auto hevc = NALFormat::Codec::hevc;
  const std::vector<Row> rows{
      {"lengthOneIsNoUnit", h264, joined({u32(1), {0x65, 0x88, 0}}), false},
      {"endsBehindTheBuffer", h264, joined({u32(4), {0x65, 0x88, 0}}), false},
      {"idrSlice", h264, unitOf({0x65, 0x88, 0}), true, true, true, false, true},
      {"laterSlice", h264, unitOf({0x41, 0x40, 0}), true, true, false, false, false},
      {"delimiter", h264, unitOf({0x09, 0x30}), true, false, false, true, false},
      {"filler", h264, unitOf({0x0C, 0xFF, 0x80}), true},
      {"forbiddenBit", h264, unitOf({0xE5, 0x88, 0}), false},
      {"type0", h264, unitOf({0x60, 0x88, 0}), false},
      {"type13", h264, unitOf({0x6D, 0x88, 0}), false},
      {"type22", h264, unitOf({0x76, 0x88, 0}), false},
      {"type21", h264, unitOf({0x75, 0x88, 0}), true},
      {"hevcSlice", hevc, unitOf({0x02, 0x01, 0xD0}), true, true, true, false, false},
      {"hevcRandomAccess", hevc, unitOf({0x2A, 0x01, 0xAC}), true, true, true, false, true},
      {"hevcParameters", hevc, unitOf({0x42, 0x01, 0x01}), true, false, false, true, false},
      {"hevcSuffixMessage", hevc, unitOf({0x50, 0x01, 0x01}), true},
      {"hevcReserved41", hevc, unitOf({0x52, 0x01, 0x01}), true},
      {"hevcType42", hevc, unitOf({0x54, 0x01, 0x01}), false},
      {"hevcType10", hevc, unitOf({0x14, 0x01, 0xD0}), false},
      {"hevcNoTemporalId", hevc, unitOf({0x02, 0x00, 0xD0}), false},
      {"hevcOtherLayer", hevc, unitOf({0x02, 0x09, 0xD0}), false},
      {"hevcWithoutThirdByte", hevc, unitOf({0x02, 0x01}), false},
  };
  for (const Row& row : rows) {
    const NALFormat format{row.codec, 4, std::nullopt};
    const auto unit = format.unit(row.bytes, 0, row.bytes.size(), false);
    ASSERT_EQ(unit.has_value(), row.accepted) << row.label;
    if (unit) {
      EXPECT_EQ(unit->length, row.bytes.size()) << row.label;
      EXPECT_EQ(unit->isVCL, row.isVCL) << row.label;
      EXPECT_EQ(unit->firstInPicture, row.first) << row.label;
      EXPECT_EQ(unit->startsAccessUnit, row.starts) << row.label;
      EXPECT_EQ(unit->isKeyframe, row.key) << row.label;
    }
    EXPECT_FALSE(format.unit(row.bytes, 0, row.bytes.size() - 1, false)) << row.label;
  }
}

TEST(NALFormat, knowsOnlyTheHeadersOfTheReference) {
  const Bytes sample = joined({unitOf({0x67, 1, 2}), unitOf({0x68, 1, 2}), unitOf({0x65, 0x88, 2}),
                               unitOf({0x41, 0x9A, 2})});
  NALFormat format{NALFormat::Codec::h264, 4, std::nullopt};
  const MemorySource source(sample);
  format.learnHeaders({{.size = static_cast<std::uint32_t>(sample.size())}}, source, 600);
  EXPECT_EQ(format.knownHeaders, (std::set<std::uint16_t>{0x41, 0x65, 0x67, 0x68}));

  const Bytes other = unitOf({0x61, 0x9A, 0});
  EXPECT_FALSE(format.unit(other, 0, other.size(), true));
  EXPECT_TRUE(format.unit(other, 0, other.size(), false));

  format.learnHeaders({{.offset = 1, .size = 3}}, source, 600);
  EXPECT_FALSE(format.knownHeaders) << "samples that cannot be walked reject nothing";
}

TEST(NALFormat, framesEndWhereTheNextBegins) {
  const NALFormat format{NALFormat::Codec::h264, 4, std::nullopt};
  const Bytes idr = joined({unitOf({0x67, 1, 2}), unitOf({0x68, 1, 2}), unitOf({0x65, 0x88, 2})});
  const Bytes next = joined({unitOf({0x09, 0x30}), unitOf({0x41, 0x9A, 2})});
  const Bytes both = joined({idr, next});
  const auto frame = format.frame(both, 0, both.size());
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->size, idr.size());
  EXPECT_TRUE(frame->isKeyframe);

  const Bytes inTheMiddle = unitOf({0x41, 0x40, 2});
  EXPECT_FALSE(format.frame(inTheMiddle, 0, inTheMiddle.size()));
  EXPECT_FALSE(format.frame(both, 0, 10)) << "no slice within the largest frame";
}

// Every place of a long stretch, so that no lane of the search is left out; pairs of zeros that are
// allowed ahead of it, and an end behind it at any distance.
TEST(EmulationRule, findsTheFirstForbiddenBytesAnywhere) {
  for (std::size_t at = 0; at < 210; ++at) {
    Bytes bytes(at + 3 + at % 70, 0x55);
    for (std::size_t pair = 1; pair + 3 < at; pair += 97) bytes[pair] = bytes[pair + 1] = 0;
    bytes[at] = bytes[at + 1] = 0;
    bytes[at + 2] = 3;
    EXPECT_FALSE(findForbiddenStretch(bytes)) << at;
    bytes[at + 2] = 2;
    EXPECT_EQ(findForbiddenStretch(bytes), at);
  }
}

}  // namespace
}  // namespace tallowmark
