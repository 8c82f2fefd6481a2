// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <bit>
#include <cstdlib>

#include "MediaKit/Photo/ScanDecoder.h"

namespace tallowmark::JPEGRepair {
namespace {

// 350 megapixels in full colour; larger pictures are left to a real decoder.
constexpr std::size_t mostBlocks = std::size_t{16} << 20U;

/// Coefficients `from` to `to` of a block, as bits.
std::uint64_t band(unsigned from, unsigned to) {
  return from > to ? 0 : (~std::uint64_t{0} << from) & (~std::uint64_t{0} >> (63 - to));
}

/// AC coefficients of one block after another (clauses G.1.2.2 and G.1.2.3).
class ACBand {
 public:
  ACBand(const ScanLayout& scan, const HuffmanTable& table)
      : start_(scan.spectralStart), end_(scan.spectralEnd), table_(table) {}

  void restart() { blocksEnded_ = 0; }

  bool decodeFirst(EntropyReader& reader, std::uint64_t& block) {
    if (blocksEnded_ > 0) {
      --blocksEnded_;
      return true;
    }
    for (unsigned k = start_; k <= end_; ++k) {
      const auto symbol = nextSymbol(reader);
      if (!symbol) {
        return false;
      }
      const unsigned run = *symbol >> 4U;
      const unsigned size = *symbol & 0x0FU;
      if (size == 0 && run < 15) {
        blocksEnded_ = (1U << run) + reader.take(run) - 1;
        return true;
      }
      k += run;
      if (k > end_) {
        return false;
      }
      if (size != 0) {
        reader.skip(size);
        block |= std::uint64_t{1} << k;
      }
    }
    return true;
  }

  bool decodeRefining(EntropyReader& reader, std::uint64_t& block) {
    unsigned k = start_;
    while (blocksEnded_ == 0 && k <= end_) {
      const auto symbol = nextSymbol(reader);
      if (!symbol) {
        return false;
      }
      const unsigned run = *symbol >> 4U;
      const unsigned size = *symbol & 0x0FU;
      if (size > 1) {
        return false;
      }
      if (size == 0 && run < 15) {
        blocksEnded_ = (1U << run) + reader.take(run);
        break;
      }
      reader.skip(size);
      k = skipZeros(reader, block, k, run);
      if (size == 1) {
        if (k > end_) {
          return false;
        }
        block |= std::uint64_t{1} << k;
      }
      ++k;
    }
    if (blocksEnded_ > 0) {
      takeCorrections(reader, block & band(k, end_));
      --blocksEnded_;
    }
    return true;
  }

 private:
  std::optional<unsigned> nextSymbol(EntropyReader& reader) const {
    reader.prepare();
    const HuffmanTable::Code code = table_.decode(reader.peek16());
    if (code.length == 0) {
      return std::nullopt;
    }
    reader.skip(code.length);
    return code.symbol;
  }

  // The position of the zero behind `run` others from `k` on; one bit is spent on every
  // coefficient in between that is not zero.
  unsigned skipZeros(EntropyReader& reader, std::uint64_t block, unsigned k, unsigned run) const {
    for (; k <= end_; ++k) {
      if ((block >> k & 1U) != 0) {
        reader.prepare();
        reader.skip(1);
      } else if (run-- == 0) {
        break;
      }
    }
    return k;
  }

  static void takeCorrections(EntropyReader& reader, std::uint64_t coefficients) {
    for (int left = std::popcount(coefficients); left > 0; left -= 16) {
      reader.prepare();
      reader.skip(static_cast<unsigned>(std::min(left, 16)));
    }
  }

  unsigned start_;
  unsigned end_;
  const HuffmanTable& table_;
  std::uint32_t blocksEnded_ = 0;
};

ScanOutcome decodeAC(ByteView data, std::size_t start, const FrameLayout& frame,
                     const ScanLayout& scan, DecoderTables& tables, ProgressiveBlocks& blocks) {
  const ScanLayout::Component& part = scan.components.front();
  const HuffmanTable* const table = tables.ac(part.acTable);
  if (table == nullptr) {
    return {};
  }
  const FrameLayout::Component& component = frame.components[part.index];
  const std::size_t across = frame.blocksAcross(component);
  ACBand coefficients(scan, *table);
  const bool refines = scan.approximationHigh != 0;
  const auto decodeUnit = [&](EntropyReader& reader, std::size_t unit) {
    std::uint64_t& block = blocks.at(part.index, unit / across, unit % across);
    return refines ? coefficients.decodeRefining(reader, block)
                   : coefficients.decodeFirst(reader, block);
  };
  EntropyReader reader(data, start);
  return decodeUnits(reader, data, across * frame.blocksDown(component), tables.restartInterval(),
                     decodeUnit, [&] { coefficients.restart(); });
}

ScanOutcome decodeDC(ByteView data, std::size_t start, const FrameLayout& frame,
                     const ScanLayout& scan, DecoderTables& tables, PictureEvidence& evidence) {
  const bool refines = scan.approximationHigh != 0;
  const bool interleaved = scan.components.size() > 1;
  std::array<int, 4> mean{};
  const auto decodeUnit = [&](EntropyReader& reader, std::size_t) {
    for (const ScanLayout::Component& part : scan.components) {
      const FrameLayout::Component& component = frame.components[part.index];
      const std::size_t count = interleaved ? component.horizontal * component.vertical : 1;
      for (std::size_t i = 0; i < count; ++i) {
        if (refines) {
          reader.prepare();
          reader.skip(1);
          continue;
        }
        const auto difference = decodeDifference(reader, *tables.dc(part.dcTable));
        if (!difference) {
          return false;
        }
        int& now = mean[part.index];
        now = std::clamp(now + *difference, -32768, 32767);
        int& largest = evidence.largestMean[part.index];
        largest = std::max(largest, std::abs(now) << scan.approximationLow);
      }
    }
    if (!refines) {
      evidence.addBrightness(mean[scan.components.front().index]);
    }
    return true;
  };
  for (const ScanLayout::Component& part : scan.components) {
    if (!refines && tables.dc(part.dcTable) == nullptr) {
      return {};
    }
  }
  const FrameLayout::Component& first = frame.components[scan.components.front().index];
  const std::size_t expected = interleaved ? frame.unitsAcross() * frame.unitsDown()
                                           : frame.blocksAcross(first) * frame.blocksDown(first);
  EntropyReader reader(data, start);
  return decodeUnits(reader, data, expected, tables.restartInterval(), decodeUnit,
                     [&] { mean = {}; });
}

}  // namespace

std::optional<ProgressiveBlocks> ProgressiveBlocks::make(const FrameLayout& frame,
                                                         std::size_t dataSize) {
  const std::size_t units = frame.unitsAcross() * frame.unitsDown();
  std::size_t total = 0;
  for (const FrameLayout::Component& component : frame.components) {
    total += units * component.horizontal * component.vertical;
  }
  // The first scan spends at least one bit on every block.
  if (total > mostBlocks || total / 8 > dataSize) {
    return std::nullopt;
  }
  ProgressiveBlocks blocks;
  for (const FrameLayout::Component& component : frame.components) {
    const std::size_t across = frame.unitsAcross() * component.horizontal;
    blocks.planes_.push_back(
        {across, std::vector<std::uint64_t>(across * frame.unitsDown() * component.vertical)});
  }
  return blocks;
}

ScanOutcome decodeProgressive(ByteView data, std::size_t start, const FrameLayout& frame,
                              const ScanLayout& scan, DecoderTables& tables,
                              ProgressiveBlocks& blocks, PictureEvidence& evidence) {
  return scan.spectralStart == 0 ? decodeDC(data, start, frame, scan, tables, evidence)
                                 : decodeAC(data, start, frame, scan, tables, blocks);
}

}  // namespace tallowmark::JPEGRepair
