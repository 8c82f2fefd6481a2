// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "MediaKit/Photo/RAWPreview.h"
#include "Photos.h"

namespace tallowmark::testing {
namespace {

using RAWPreview::Candidate;
using RAWPreview::embeddedJPEGs;

const Bytes data9(9, 0x55);

TEST(EmbeddedJPEGs, areFoundWithSizeAndEnd) {
  const Bytes small = joined({grayHeader(160, 120), data9, eoi});
  const Bytes large = joined({grayHeader(6000, 4000), data9});
  const Bytes raw = joined({{1, 2, 3}, small, data9, large, eoi, data9});
  const std::size_t second = 3 + small.size() + 9;
  EXPECT_EQ(embeddedJPEGs(raw),
            (std::vector<Candidate>{{3, 3 + small.size(), 160, 120, false},
                                    {second, second + large.size() + 2, 6000, 4000, false}}));
  const Bytes open = joined({{1}, large});
  EXPECT_EQ(embeddedJPEGs(open), (std::vector<Candidate>{{1, open.size(), 6000, 4000, true}}));
}

TEST(EmbeddedJPEGs, areOnlyThoseThatDecodersRead) {
  const Bytes tables = joined({quantTable(0), huffmanTable(0x00), huffmanTable(0x10)});
  struct Row {
    const char* label;
    Bytes frame;
    bool found;
  };
  const std::vector<Row> rows{{"baseline", grayFrame(9, 9), true},
                              {"extended", grayFrame(9, 9, 0, 0xC1), true},
                              {"progressive", grayFrame(9, 9, 0, 0xC2), true},
                              {"lossless", grayFrame(9, 9, 0, 0xC3), false},
                              {"arithmetic", grayFrame(9, 9, 0, 0xC9), false},
                              {"width 0", grayFrame(0, 9), false},
                              {"height 0", grayFrame(9, 0), false},
                              {"short", segment(0xC0, {8, 0, 9}), false},
                              {"none", {}, false}};
  for (const Row& row : rows) {
    const Bytes raw = joined({soi, tables, row.frame, grayScan(), data9, eoi});
    EXPECT_EQ(embeddedJPEGs(raw).size(), row.found ? 1U : 0U) << row.label;
    EXPECT_EQ(RAWPreview::parse(raw, 0).has_value(), row.found) << row.label;
  }
  EXPECT_FALSE(RAWPreview::parse({}, 0));
  EXPECT_FALSE(RAWPreview::parse(grayHeader(), 1));
}

TEST(EmbeddedJPEGs, areTheSameAsFoundOneByOne) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    const Bytes raw =
        joined({markerNoise(seed, seed), grayHeader(), markerNoise(50, seed + 1), soi,
                segment(0xE1, joined({grayHeader(8, 8), seed % 2 == 0 ? eoi : data9})),
                grayFrame(9, 9), grayScan(), markerNoise(seed, seed + 2)});
    std::vector<Candidate> plain;
    for (std::size_t at = 0; at + 2 < raw.size(); ++at) {
      const auto candidate = RAWPreview::parse(raw, at);
      if (candidate && raw[at + 2] == 0xFF) plain.push_back(*candidate);
    }
    EXPECT_EQ(embeddedJPEGs(raw), plain) << seed;
  }
}

// Each took minutes if every start walked, or searched its end, by itself.
TEST(EmbeddedJPEGs, takeLinearTimeHoweverTheFileIsMade) {
  const Bytes header = grayHeader();
  const std::vector<Bytes> patterns{{0xFF, 0xD8, 0xFF},
                                    {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x04, 0xFF, 0xD8},
                                    {0xFF, 0xD8, 0xFF, 0xE0, 0x00, 0x06, 0xFF, 0xD8, 0xFF, 0xE0},
                                    header};
  for (const Bytes& pattern : patterns) {
    Bytes hostile;
    while (hostile.size() < 8'000'000)
      hostile.insert(hostile.end(), pattern.begin(), pattern.end());
    const auto found = embeddedJPEGs(hostile);
    EXPECT_EQ(found.size(), &pattern == &patterns.back() ? hostile.size() / header.size() : 0U);
  }
}

TEST(RAWExtensions, areTwentyOneInLowerCase) {
  EXPECT_EQ(RAWPreview::extensions().size(), 21U);
  EXPECT_TRUE(RAWPreview::extensions().contains("cr3"));
  EXPECT_FALSE(RAWPreview::extensions().contains("jpg"));
}

}  // namespace
}  // namespace tallowmark::testing
