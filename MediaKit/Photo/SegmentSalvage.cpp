// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/SegmentSalvage.h"

#include <algorithm>
#include <numeric>
#include <optional>

#include "MediaKit/Container/BigEndian.h"
#include "MediaKit/Photo/FrameLayout.h"
#include "MediaKit/Photo/HuffmanTable.h"
#include "MediaKit/Photo/JPEGMarkers.h"

namespace tallowmark::JPEGRepair {
namespace {

constexpr std::size_t longestSegment = 2 + 0xFFFF;

// The segment whose 0xFF stands at `at`, when its length fits before `before`.
std::optional<Segment> segmentAt(ByteView data, std::size_t at, std::size_t before) {
  if (before - at < 4 || data[at] != 0xFF) {
    return std::nullopt;
  }
  const std::size_t length = bigEndian<std::uint16_t>(data, at + 2);
  if (length < 2 || length > before - at - 2) {
    return std::nullopt;
  }
  return Segment{data[at + 1], at, data.subspan(at, 2 + length)};
}

bool isWanted(std::uint8_t marker) {
  return JPEGMarker::isFrame(marker) || marker == JPEGMarker::quantizationTables ||
         marker == JPEGMarker::huffmanTables || marker == JPEGMarker::restartInterval;
}

// There are four identifiers of quantization tables and eight of Huffman tables. Without that bound
// a file of segments, each of which goes on through all behind it, would be read once for each.
bool tablesAddUp(ByteView segment, bool (*tableFits)(ByteView rest, std::size_t& length)) {
  constexpr int mostTables = 8;
  std::size_t at = 4;
  for (int table = 0; at < segment.size() && table < mostTables; ++table) {
    std::size_t length = 0;
    if (!tableFits(segment.subspan(at), length) || length > segment.size() - at) {
      return false;
    }
    at += length;
  }
  return segment.size() > 4 && at >= segment.size();
}

bool quantizationFits(ByteView rest, std::size_t& length) {
  length = rest[0] < 16 ? 65 : 129;
  return (rest[0] >> 4U) <= 1 && (rest[0] & 0x0FU) <= 3;
}

// No code may be all ones (clause C), and no difference has more than 16 bits (table H.2).
bool huffmanFits(ByteView rest, std::size_t& length) {
  if (rest.size() < 17 || (rest[0] >> 4U) > 1 || (rest[0] & 0x0FU) > 3) {
    return false;
  }
  const ByteView counts = rest.subspan(1, 16);
  length = std::accumulate(counts.begin(), counts.end(), std::size_t{17});
  std::uint32_t patterns = 1;
  for (const std::uint8_t count : counts) {
    patterns *= 2;
    if (count >= patterns) {
      return false;
    }
    patterns -= count;
  }
  const ByteView symbols = rest.subspan(17, std::min(length, rest.size()) - 17);
  const bool isDC = (rest[0] >> 4U) == 0;
  return canBeHuffmanCode(counts) && (!isDC || std::all_of(symbols.begin(), symbols.end(),
                                                           [](auto size) { return size <= 16; }));
}

/// Positions before a scan from which segment after segment leads to it.
class Links {
 public:
  Links(ByteView data, std::size_t before) : leads_(before + 1) {
    mark(data, before);
    std::size_t lowest = before;
    for (std::size_t at = before; at-- > 0 && lowest - at <= longestSegment;) {
      const auto segment = segmentAt(data, at, before);
      const bool passable = segment && (JPEGMarker::isMiscellaneous(segment->marker) ||
                                        JPEGMarker::isFrame(segment->marker));
      if (passable && leads_[at + segment->bytes.size()]) {
        mark(data, at);
        lowest = at;
      }
    }
  }

  bool leadsToScan(std::size_t at) const { return leads_[at]; }

 private:
  // Fill bytes may stand before any marker (clause B.1.1.2).
  void mark(ByteView data, std::size_t at) {
    leads_[at] = true;
    while (at > 0 && data[at - 1] == 0xFF) {
      leads_[--at] = true;
    }
  }

  std::vector<bool> leads_;
};

// Whether the segments from `segment` on lead to a scan of another picture, `before` being ours.
bool leadsToAnotherScan(ByteView data, const Segment& segment, std::size_t before) {
  constexpr int mostSteps = 64;
  std::optional<Segment> next = segment;
  for (int step = 0; next && step < mostSteps; ++step) {
    if (next->marker == JPEGMarker::startOfScan) {
      return true;
    }
    if (!JPEGMarker::isMiscellaneous(next->marker) && !JPEGMarker::isFrame(next->marker)) {
      break;
    }
    next = segmentAt(data, next->offset + next->bytes.size(), before);
  }
  return false;
}

}  // namespace

bool isWellFormed(const Segment& segment) {
  switch (segment.marker) {
    case JPEGMarker::quantizationTables:
      return tablesAddUp(segment.bytes, quantizationFits);
    case JPEGMarker::huffmanTables:
      return tablesAddUp(segment.bytes, huffmanFits);
    case JPEGMarker::restartInterval:
      return segment.bytes.size() == 6;
    default:
      return frameLayout(segment).has_value();
  }
}

std::vector<Segment> salvageSegments(ByteView data, std::size_t before) {
  before = std::min(before, data.size());
  const std::size_t lastEnd = findMarkerBackwards(data, before, JPEGMarker::endOfImage);
  std::vector<Segment> salvaged;
  for (std::size_t at = lastEnd == before ? 0 : lastEnd + 2; at < before; ++at) {
    const auto segment = segmentAt(data, at, before);
    if (segment && isWanted(segment->marker) && isWellFormed(*segment)) {
      salvaged.push_back(*segment);
    }
  }
  return salvaged;
}

Survivors survivorsBefore(ByteView data, std::size_t before) {
  before = std::min(before, data.size());
  const Links links(data, before);
  Survivors survivors;
  for (std::size_t at = 0; at < before; ++at) {
    if (!links.leadsToScan(at)) {
      continue;
    }
    const auto segment = segmentAt(data, at, before);
    if (segment && isWanted(segment->marker) && isWellFormed(*segment)) {
      survivors.linked.push_back(*segment);
    }
  }
  survivors.all = survivors.linked;
  for (const Segment& segment : salvageSegments(data, before)) {
    if (!links.leadsToScan(segment.offset) && !leadsToAnotherScan(data, segment, before)) {
      survivors.all.push_back(segment);
    }
  }
  std::sort(survivors.all.begin(), survivors.all.end(),
            [](const Segment& a, const Segment& b) { return a.offset < b.offset; });
  return survivors;
}

}  // namespace tallowmark::JPEGRepair
