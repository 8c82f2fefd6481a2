// SPDX-License-Identifier: GPL-3.0-or-later
#include <gtest/gtest.h>

#include "MediaKit/Photo/JPEGRepair.h"
#include "Photos.h"

namespace tallowmark::testing {
namespace {

using namespace JPEGRepair;

const Bytes run64(64, 0x55);

TEST(HeaderWalk, endsAtTheFirstScanOrGivesNothing) {
  const Bytes comment = segment(0xFE, {1, 2, 3});
  const Bytes scan = grayScan();
  struct Row {
    const char* label;
    Bytes bytes;
    std::size_t scanStart;  // 0 for no header
    std::size_t segments;
  };
  const std::vector<Row> rows{
      {"empty", {}, 0, 0},
      {"four bytes", {0xFF, 0xD8, 0xFF, 0xDA}, 0, 0},
      {"begins with EOI", joined({eoi, scan}), 0, 0},
      {"scan at once", joined({soi, scan}), 12, 0},
      {"one segment", joined({soi, comment, scan}), 19, 1},
      {"fill bytes", joined({soi, {0xFF, 0xFF}, comment, scan}), 21, 1},
      {"length 0", joined({soi, {0xFF, 0xFE, 0, 0}, scan}), 0, 0},
      {"length 1", joined({soi, {0xFF, 0xFE, 0, 1}, scan}), 0, 0},
      {"length 2 holds nothing", joined({soi, {0xFF, 0xFE, 0, 2}, scan}), 16, 1},
      {"length past the end", joined({soi, {0xFF, 0xFE, 0, 20}, scan}), 0, 0},
      {"stray byte", joined({soi, comment, {0}, scan}), 0, 0},
      {"second SOI", joined({soi, soi, {0, 2}, scan}), 0, 0},
      {"EOI", joined({soi, comment, eoi, {0, 2}, scan}), 0, 0},
      {"marker below 0xC0", joined({soi, {0xFF, 0x01, 0, 2}, scan}), 0, 0},
      {"restart marker with a length", joined({soi, {0xFF, 0xD3, 0, 2}, scan}), 16, 1},
      {"no scan", joined({soi, comment}), 0, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    const auto header = parseHeader(row.bytes);
    EXPECT_EQ(header ? header->scanStart : 0, row.scanStart);
    EXPECT_EQ(header ? header->segments.size() : 0, row.segments);
  }
  const auto filled = parseHeader(rows[5].bytes);
  EXPECT_EQ(filled->segments[0].offset, 4U) << "the last 0xFF before the marker";
  EXPECT_EQ(filled->segments[0].bytes.size(), comment.size());
}

TEST(TableIDs, areThoseThatSegmentsDefineAndScansNeed) {
  const auto whole = [](const Bytes& bytes) { return Segment{bytes[1], 0, bytes}; };
  const auto defined = [&](const Bytes& bytes, TableKind kind) {
    const std::vector<Segment> one{whole(bytes)};
    return tableIDs(one, kind);
  };
  const Bytes twoTables = segment(0xDB, joined({{0}, Bytes(64, 1), {0x11}, Bytes(128, 1), {2}}));
  EXPECT_EQ(defined(twoTables, TableKind::quantization), (TableIDs{0, 1, 2}));
  const Bytes huffman = segment(0xC4, joined({{0x00, 2}, zeros(15), {7, 8, 0x11, 1}, zeros(3)}));
  EXPECT_EQ(defined(huffman, TableKind::huffman), (TableIDs{0x00, 0x11})) << "the cut one counts";

  const Bytes frame = segment(0xC0, {8, 0, 16, 0, 16, 3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 3});
  EXPECT_EQ(neededQuantIDs(whole(frame)), (TableIDs{0, 1, 3}));
  EXPECT_EQ(neededQuantIDs({0xC0, 0, ByteView(frame).first(15)}), (TableIDs{0})) << "cut short";
  EXPECT_TRUE(neededQuantIDs({0xC0, 0, ByteView(frame).first(9)}).empty());
  const Bytes sos = segment(0xDA, {2, 1, 0x01, 2, 0x23, 0, 63, 0});
  EXPECT_EQ(neededHuffmanIDs(whole(sos)), (TableIDs{0x00, 0x02, 0x11, 0x13}));
  EXPECT_TRUE(neededHuffmanIDs({0xDA, 0, ByteView(sos).first(4)}).empty());
}

TEST(Completeness, asksForTheTablesThatTheFirstScanDecodesWith) {
  const Bytes dcOnly = segment(0xDA, {1, 1, 0x00, 0, 0, 1});
  const Bytes tables = joined({quantTable(0), huffmanTable(0x00)});
  const Bytes acTable = huffmanTable(0x10);
  struct Row {
    const char* label;
    Bytes bytes;
    bool complete;
  };
  const std::vector<Row> rows{
      {"all there", grayHeader(), true},
      {"no frame", joined({soi, tables, acTable, grayScan()}), false},
      {"frame names table 1", joined({soi, tables, acTable, grayFrame(9, 9, 1), grayScan()}),
       false},
      {"no AC table", joined({soi, tables, grayFrame(9, 9), grayScan()}), false},
      {"first DC scan", joined({soi, tables, grayFrame(9, 9, 0, 0xC2), dcOnly}), true},
      {"arithmetic", joined({soi, quantTable(0), grayFrame(9, 9, 0, 0xC9), grayScan()}), true},
      {"0xC8 is no frame", joined({soi, tables, acTable, grayFrame(9, 9, 0, 0xC8), grayScan()}),
       false},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(parseHeader(row.bytes)->isComplete(), row.complete) << row.label;
  }
  EXPECT_EQ(parseHeader(grayHeader(40, 30))->dimensions(), (Dimensions{40, 30}));
}

// The rule itself, a step at a time.
std::size_t plainRunEnd(const Bytes& data, std::size_t at) {
  while (at + 1 < data.size()) {
    const unsigned next = data[at + 1];
    if (data[at] != 0xFF) {
      ++at;
    } else if (next == 0 || next == 0xFF || (next & 0xF8U) == 0xD0) {
      at += 2;
    } else {
      break;
    }
  }
  return at;
}

TEST(EntropyRun, endsAtTheFirstMarkerThatIsNoRestart) {
  struct Row {
    const char* label;
    Bytes bytes;
    std::size_t length;
  };
  const std::vector<Row> rows{
      {"marker", {1, 2, 0xFF, 0xD9, 3}, 2},
      {"stuffing", {1, 0xFF, 0, 2, 0xFF, 0xD9}, 4},
      {"restart", {0xFF, 0xD3, 1, 0xFF, 0xC4}, 3},
      {"fill hides", {0xFF, 0xFF, 0xD9, 1, 2}, 4},
      {"last byte not counted", {1, 2, 3}, 2},
      {"last byte of a pair", {1, 0xFF, 0}, 3},
      {"lone 0xFF", {1, 0xFF}, 1},
      {"three 0xFF", {0xFF, 0xFF, 0xFF}, 2},
      {"nothing", {}, 0},
  };
  for (const Row& row : rows) EXPECT_EQ(entropyLength(row.bytes, 0), row.length) << row.label;
  for (unsigned seed = 0; seed < 200; ++seed) {
    const Bytes noise = markerNoise(1 + seed * 7, seed);
    for (std::size_t start = 0; start < noise.size(); start += 5) {
      EXPECT_EQ(entropyLength(noise, start), plainRunEnd(noise, start) - start) << seed;
    }
  }
}

// As many steps as the rule read literally, one run for each candidate.
std::optional<std::size_t> plainMainScan(const Bytes& data) {
  std::size_t best = 0;
  std::optional<std::size_t> found;
  for (std::size_t i = 0; i + 4 < data.size();) {
    const std::size_t components = data[i + 4];
    const std::size_t length = data[i + 2] * 256U + data[i + 3];
    const std::size_t start = i + 2 + length;
    const bool candidate = data[i] == 0xFF && data[i + 1] == 0xDA && components >= 1 &&
                           components <= 4 && length == 2 * components + 6 && start <= data.size();
    if (!candidate) {
      ++i;
      continue;
    }
    const std::size_t run = plainRunEnd(data, start) - start;
    if (run > best) {
      best = run;
      found = i;
    }
    i = start;
  }
  return best >= 64 ? found : std::nullopt;
}

TEST(MainScan, isTheLongestAndTheFirstOfEqualOnes) {
  const Bytes scan = grayScan();
  const Bytes run63(63, 0x55);
  EXPECT_FALSE(findMainScan(joined({scan, run63, eoi})));
  EXPECT_TRUE(findMainScan(joined({scan, run64, eoi})));
  const Bytes equal = joined({{1, 2, 3}, scan, run64, eoi, scan, run64, eoi});
  EXPECT_EQ(findMainScan(equal)->sos.offset, 3U);
  const Bytes longer = joined({scan, run64, eoi, scan, run64, {0x55}, eoi});
  EXPECT_EQ(findMainScan(longer)->scanStart, 2 * scan.size() + 66);
  for (const std::uint8_t components : {std::uint8_t{0}, std::uint8_t{5}}) {
    Bytes wrong = joined({scan, run64, eoi});
    wrong[4] = components;
    EXPECT_FALSE(findMainScan(wrong)) << int{components};
  }
  for (unsigned seed = 0; seed < 300; ++seed) {
    const Bytes noise = joined({markerNoise(seed, seed),
                                scan,
                                markerNoise(seed % 7, seed),
                                {0xFF, 0xFF, 0xFF},
                                scan,
                                run64,
                                markerNoise(seed, seed + 1)});
    const auto found = findMainScan(noise);
    EXPECT_EQ(found ? std::optional(found->sos.offset) : std::nullopt, plainMainScan(noise))
        << seed;
  }
}

TEST(MainScan, isFoundInLinearTimeWhereRunsOverlap) {
  Bytes hostile;
  const Bytes hidden = joined({{0xFF}, segment(0xDA, {1, 1, 0, 0, 63, 0})});
  while (hostile.size() < 4'000'000) hostile.insert(hostile.end(), hidden.begin(), hidden.end());
  EXPECT_TRUE(findMainScan(hostile));
}

TEST(End, isTheLastMarkerButForZeros) {
  EXPECT_FALSE(hasEnd({}));
  EXPECT_FALSE(hasEnd(zeros(9)));
  EXPECT_FALSE(hasEnd(Bytes{0xD9}));
  EXPECT_FALSE(hasEnd(Bytes{0xFF, 0xD9, 1}));
  EXPECT_TRUE(hasEnd(eoi));
  EXPECT_TRUE(hasEnd(joined({{1}, eoi, zeros(4096)})));
}

TEST(Diagnosis, tellsHealthyCutHeadlessAndNoJPEGApart) {
  const Bytes photo = makePhoto({});
  const Bytes sibling = makePhoto({.variant = 1});
  const auto cut = [&](std::size_t bytes) {
    return Bytes(photo.begin(), photo.end() - static_cast<std::ptrdiff_t>(bytes));
  };
  const Bytes notes = segment(0xE1, joined({{1, 2}, sibling, {0}}));
  const Bytes withNotes = joined({soi, notes, Bytes(photo.begin() + 2, photo.end())});
  const auto with = [&](std::uint8_t marker, std::size_t at, std::uint8_t value) {
    Bytes changed = photo;
    const Header header = parseHeader(photo).value();
    for (const Segment& part : header.segments) {
      if (part.marker == marker) changed[part.offset + at] = value;
    }
    return changed;
  };
  struct Row {
    const char* label;
    Bytes bytes;
    Diagnosis expected;
  };
  const std::vector<Row> rows{
      {"no such precision", with(0xC0, 4, 9), Diagnosis::damagedHeader},
      {"no such sampling", with(0xC0, 11, 0x52), Diagnosis::damagedHeader},
      {"no such component", with(0xC0, 10, 0x52), Diagnosis::damagedHeader},
      {"no Huffman code", with(0xC4, 5, 2), Diagnosis::damagedHeader},
      {"healthy", photo, Diagnosis::healthy},
      {"zeros behind", joined({photo, zeros(4096)}), Diagnosis::healthy},
      {"maker's data behind", joined({photo, Bytes(28, 0x11)}), Diagnosis::healthy},
      {"a film behind", joined({photo, makeBox("ftyp", {text("mp42")}), run64}),
       Diagnosis::healthy},
      {"second picture cut", joined({photo, cut(500)}), Diagnosis::healthy},
      {"a JPEG in the maker note", withNotes, Diagnosis::healthy},
      {"cut by its end", cut(2), Diagnosis::truncated},
      {"cut, then zeros", joined({cut(900), zeros(900)}), Diagnosis::truncated},
      {"cut, then the rest of another",
       joined({cut(900), Bytes(sibling.end() - 500, sibling.end()), {7}}), Diagnosis::truncated},
      {"first bytes gone", wiped(photo, 20, 0), Diagnosis::damagedHeader},
      {"bytes between segments", joined({soi, {0}, Bytes(photo.begin() + 2, photo.end())}),
       Diagnosis::damagedHeader},
      {"nothing", {}, Diagnosis::notJPEG},
      {"cut in the header", cut(photo.size() - 200), Diagnosis::notJPEG},
      {"progressive", makePhoto({.progressive = true}), Diagnosis::healthy},
      {"arithmetic", makePhoto({.arithmetic = true}), Diagnosis::healthy},
      {"lossless",
       joined({soi, grayFrame(16, 16, 0, 0xC3), huffmanTable(0), segment(0xDA, {1, 1, 0, 1, 0, 0}),
               Bytes(99, 0x55), eoi}),
       Diagnosis::healthy},
      {"three scans", makePhoto({.optimizedTables = true, .separateScans = true}),
       Diagnosis::healthy},
  };
  for (const Row& row : rows) EXPECT_EQ(diagnose(row.bytes), row.expected) << row.label;
}

}  // namespace
}  // namespace tallowmark::testing
