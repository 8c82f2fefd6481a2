// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Photo/ScanDecoder.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <numeric>

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark::JPEGRepair {
namespace {

using Verdict = PictureCheck::Verdict;

// Encoders round up to a word or a card's block here and there.
constexpr std::size_t paddingAllowed = 64;

bool decodeACCoefficients(EntropyReader& reader, const HuffmanTable& table) {
  unsigned k = 1;
  while (k < 64) {
    reader.prepare();
    const HuffmanTable::Step step = k <= 64 - HuffmanTable::roomForSteps
                                        ? table.steps(reader.peek16())
                                        : table.step(reader.peek16());
    reader.skip(step.bits);
    k += step.advance;
  }
  return k == 64 || k >= HuffmanTable::endOfBlock;
}

struct BlockCoder {
  std::size_t component = 0;
  const HuffmanTable* dc = nullptr;
  const HuffmanTable* ac = nullptr;
};

// The blocks of one unit, in coding order; empty when a table is missing.
std::vector<BlockCoder> unitBlocks(const FrameLayout& frame, const ScanLayout& scan,
                                   DecoderTables& tables) {
  std::vector<BlockCoder> blocks;
  for (const ScanLayout::Component& part : scan.components) {
    const HuffmanTable* const dc = tables.dc(part.dcTable);
    const HuffmanTable* const ac = tables.ac(part.acTable);
    if (dc == nullptr || ac == nullptr) {
      return {};
    }
    const FrameLayout::Component& component = frame.components[part.index];
    const bool interleaved = scan.components.size() > 1;
    blocks.insert(blocks.end(), interleaved ? component.horizontal * component.vertical : 1,
                  BlockCoder{part.index, dc, ac});
  }
  return blocks;
}

}  // namespace

void DecoderTables::apply(const Segment& segment) {
  if (segment.marker == JPEGMarker::huffmanTables) {
    applyHuffman(segment.bytes);
  }
  if (segment.marker == JPEGMarker::restartInterval) {
    restartInterval_ = bigEndianOrZero<std::uint16_t>(segment.bytes, 4);
  }
}

void DecoderTables::applyHuffman(ByteView segment) {
  for (std::size_t at = 4; segment.size() - at >= 17;) {
    const unsigned head = segment[at];
    const ByteView counts = segment.subspan(at + 1, 16);
    const auto total = std::accumulate(counts.begin(), counts.end(), std::size_t{0});
    at += 17;
    const ByteView values = segment.subspan(at, std::min(total, segment.size() - at));
    at += values.size();
    if ((head & 0x0FU) <= 3 && (head >> 4U) <= 1) {
      auto& definitions = (head >> 4U) == 0 ? dc_ : ac_;
      definitions[head & 0x0FU] = {counts, values, std::nullopt};
    }
  }
}

const HuffmanTable* DecoderTables::made(Definition& definition) {
  if (!definition.table) {
    definition.table = HuffmanTable::make(definition.counts, definition.values);
  }
  return definition.table ? &*definition.table : nullptr;
}

ScanOutcome decodeSequential(ByteView data, std::size_t start, const FrameLayout& frame,
                             const ScanLayout& scan, DecoderTables& tables,
                             PictureEvidence& evidence) {
  const std::vector<BlockCoder> blocks = unitBlocks(frame, scan, tables);
  if (blocks.empty()) {
    return {};
  }
  const FrameLayout::Component& first = frame.components[scan.components.front().index];
  const std::size_t expected = scan.components.size() > 1
                                   ? frame.unitsAcross() * frame.unitsDown()
                                   : frame.blocksAcross(first) * frame.blocksDown(first);
  std::array<int, 4> mean{};
  std::array<int, 4> largest{};
  const auto decodeUnit = [&](EntropyReader& reader, std::size_t) {
    for (const BlockCoder& block : blocks) {
      const auto difference = decodeDifference(reader, *block.dc);
      if (!difference || !decodeACCoefficients(reader, *block.ac)) {
        return false;
      }
      int& now = mean[block.component];
      now = std::clamp(now + *difference, -32768, 32767);
      largest[block.component] = std::max(largest[block.component], std::abs(now));
    }
    evidence.addBrightness(mean[blocks.front().component]);
    return true;
  };
  EntropyReader reader(data, start);
  const ScanOutcome outcome =
      decodeUnits(reader, data, expected, tables.restartInterval(), decodeUnit, [&] { mean = {}; });
  for (std::size_t k = 0; k < evidence.largestMean.size(); ++k) {
    evidence.largestMean[k] = std::max(evidence.largestMean[k], largest[k]);
  }
  return outcome;
}

Verdict verdictAtStop(const EntropyReader& reader, ByteView data) {
  const std::size_t at = reader.position();
  if (reader.bytesLeft() != 0) {
    return Verdict::corrupt;
  }
  if (data.size() - at < 2) {
    return Verdict::endsEarly;
  }
  return data[at] != 0xFF || JPEGMarker::isRestart(data[at + 1]) ? Verdict::corrupt
                                                                 : Verdict::endsEarly;
}

Verdict verdictAtEnd(const EntropyReader& reader, ByteView data) {
  const std::size_t at = reader.position();
  const std::size_t end = findScanInterruption(data, at);
  if (reader.bytesLeft() + (end - at) <= paddingAllowed) {
    return Verdict::complete;
  }
  const ByteView rest = data.subspan(at, end - at);
  const bool filled = std::all_of(rest.begin(), rest.end(), [](std::uint8_t b) { return b == 0; });
  return filled ? Verdict::complete : Verdict::dataLeftOver;
}

}  // namespace tallowmark::JPEGRepair
