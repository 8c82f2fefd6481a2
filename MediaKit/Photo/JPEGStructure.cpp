// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/JPEGStructure.h"

#include <algorithm>
#include <numeric>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/JPEGMarkers.h"

namespace tallowmark::JPEGRepair {
namespace {

constexpr std::size_t segmentHead = 4;  // 0xFF, marker, length
constexpr std::size_t huffmanCounts = 16;

// Far more than a gigabyte of application data needs; without a limit a file made of empty segments
// would take ten times its size in memory.
constexpr std::size_t mostSegments = 16384;

void addQuantizationIDs(ByteView segment, TableIDs& ids) {
  for (std::size_t at = segmentHead; at < segment.size();) {
    const unsigned head = segment[at];
    ids.insert(static_cast<int>(head & 0x0FU));
    at += head < 16 ? 65 : 129;
  }
}

void addHuffmanIDs(ByteView segment, TableIDs& ids) {
  for (std::size_t at = segmentHead; at < segment.size();) {
    ids.insert(segment[at]);
    if (segment.size() - at < 1 + huffmanCounts) {
      return;
    }
    const ByteView counts = segment.subspan(at + 1, huffmanCounts);
    at += 1 + huffmanCounts + std::accumulate(counts.begin(), counts.end(), std::size_t{0});
  }
}

struct HuffmanNeed {
  bool dc = false;
  bool ac = false;
};

// Clauses G.1.2 (progressive), H.1.2 (lossless) and D (arithmetic coding).
HuffmanNeed huffmanNeed(std::uint8_t frameMarker, ByteView sos) {
  const bool arithmetic = frameMarker >= 0xC9;
  const bool lossless = (frameMarker & 0x03U) == 0x03U;
  const bool progressive = (frameMarker & 0x03U) == 0x02U;
  if (arithmetic) {
    return {};
  }
  if (lossless) {
    return {.dc = true, .ac = false};
  }
  if (!progressive || sos.size() < 3) {
    return {.dc = true, .ac = true};
  }
  const bool firstCoefficientIsDC = sos[sos.size() - 3] == 0;
  const bool refines = (sos[sos.size() - 1] >> 4U) != 0;
  return {.dc = firstCoefficientIsDC && !refines, .ac = !firstCoefficientIsDC};
}

TableIDs scanTableIDs(ByteView sos, HuffmanNeed need) {
  TableIDs ids;
  if (sos.size() < 5) {
    return ids;
  }
  const std::size_t components = sos[4];
  for (std::size_t k = 0; k < components && 6 + 2 * k < sos.size(); ++k) {
    const unsigned selectors = sos[6 + 2 * k];
    if (need.dc) {
      ids.insert(static_cast<int>(selectors >> 4U));
    }
    if (need.ac) {
      ids.insert(static_cast<int>(0x10U | (selectors & 0x0FU)));
    }
  }
  return ids;
}

}  // namespace

bool isFrameMarker(std::uint8_t code) {
  return JPEGMarker::isFrame(code);
}
bool isQuantizationMarker(std::uint8_t code) {
  return code == JPEGMarker::quantizationTables;
}
bool isHuffmanMarker(std::uint8_t code) {
  return code == JPEGMarker::huffmanTables;
}

std::vector<Segment> Header::all(MarkerSet markers) const {
  std::vector<Segment> found;
  std::copy_if(segments.begin(), segments.end(), std::back_inserter(found),
               [markers](const Segment& segment) { return markers(segment.marker); });
  return found;
}

std::optional<Segment> Header::frame() const {
  const auto found = std::find_if(segments.begin(), segments.end(), [](const Segment& segment) {
    return JPEGMarker::isFrame(segment.marker);
  });
  return found == segments.end() ? std::nullopt : std::optional(*found);
}

std::optional<Dimensions> Header::dimensions() const {
  const auto header = frame();
  return header ? frameDimensions(*header) : std::nullopt;
}

bool Header::isComplete() const {
  const auto header = frame();
  const bool isLossless = header && (header->marker & 0x03U) == 0x03U;  // nothing is quantized
  return header &&
         (isLossless || covers(tableIDs(all(isQuantizationMarker), TableKind::quantization),
                               neededQuantIDs(*header))) &&
         covers(tableIDs(all(isHuffmanMarker), TableKind::huffman),
                decodedHuffmanIDs(*header, sos));
}

std::optional<Header> parseHeader(ByteView data) {
  if (data.size() < 5 || data[0] != 0xFF || data[1] != JPEGMarker::startOfImage) {
    return std::nullopt;
  }
  Header header;
  for (std::size_t at = 2; data.size() - at >= segmentHead;) {
    if (data[at] != 0xFF) {
      return std::nullopt;
    }
    const std::uint8_t marker = data[at + 1];
    if (marker == 0xFF) {  // fill byte
      ++at;
      continue;
    }
    const std::size_t length = bigEndian<std::uint16_t>(data, at + 2);
    if (length < 2 || length > data.size() - at - 2) {
      return std::nullopt;
    }
    const Segment segment{marker, at, data.subspan(at, 2 + length)};
    at += 2 + length;
    if (marker == JPEGMarker::startOfScan) {
      header.sos = segment;
      header.scanStart = at;
      return header;
    }
    if (marker < 0xC0 || marker == JPEGMarker::startOfImage || marker == JPEGMarker::endOfImage ||
        header.segments.size() == mostSegments) {
      return std::nullopt;
    }
    header.segments.push_back(segment);
  }
  return std::nullopt;
}

std::optional<Dimensions> frameDimensions(const Segment& frame) {
  if (frame.bytes.size() < 9) {
    return std::nullopt;
  }
  return Dimensions{.width = bigEndian<std::uint16_t>(frame.bytes, 7),
                    .height = bigEndian<std::uint16_t>(frame.bytes, 5)};
}

TableIDs tableIDs(std::span<const Segment> segments, TableKind kind) {
  TableIDs ids;
  for (const Segment& segment : segments) {
    kind == TableKind::quantization ? addQuantizationIDs(segment.bytes, ids)
                                    : addHuffmanIDs(segment.bytes, ids);
  }
  return ids;
}

TableIDs neededQuantIDs(const Segment& frame) {
  TableIDs ids;
  if (frame.bytes.size() < 10) {
    return ids;
  }
  const std::size_t components = frame.bytes[9];
  for (std::size_t k = 0; k < components && 12 + 3 * k < frame.bytes.size(); ++k) {
    ids.insert(frame.bytes[12 + 3 * k]);
  }
  return ids;
}

TableIDs neededHuffmanIDs(const Segment& sos) {
  return scanTableIDs(sos.bytes, {.dc = true, .ac = true});
}

TableIDs decodedHuffmanIDs(const Segment& frame, const Segment& sos) {
  return scanTableIDs(sos.bytes, huffmanNeed(frame.marker, sos.bytes));
}

bool covers(const TableIDs& defined, const TableIDs& needed) {
  return std::includes(defined.begin(), defined.end(), needed.begin(), needed.end());
}

}  // namespace tallowmark::JPEGRepair
