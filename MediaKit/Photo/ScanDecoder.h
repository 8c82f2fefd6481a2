// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Photo/EntropyReader.h"
#include "MediaKit/Photo/FrameLayout.h"
#include "MediaKit/Photo/HuffmanTable.h"
#include "MediaKit/Photo/PictureCheck.h"

namespace tallowmark::JPEGRepair {

/// What DHT and DRI segments have set up to now. Borrows the segments' bytes.
class DecoderTables {
 public:
  /// Takes over what the segment defines.
  void apply(const Segment& segment);

  std::size_t restartInterval() const { return restartInterval_; }
  /// Null when nothing was defined under that number (0 to 3), or no code. Valid until the next
  /// apply.
  const HuffmanTable* dc(std::size_t number) { return made(dc_[number]); }
  const HuffmanTable* ac(std::size_t number) { return made(ac_[number]); }

 private:
  /// Made ready when a scan first decodes with it: a header may define thousands in vain.
  struct Definition {
    ByteView counts;
    ByteView values;
    std::optional<HuffmanTable> table;
  };

  void applyHuffman(ByteView segment);
  static const HuffmanTable* made(Definition& definition);

  std::array<Definition, 4> dc_;
  std::array<Definition, 4> ac_;
  std::size_t restartInterval_ = 0;
};

struct ScanOutcome {
  PictureCheck::Verdict verdict = PictureCheck::Verdict::notDecoded;
  std::size_t units = 0;
  std::size_t expected = 0;
  std::optional<std::size_t> unitsToRestart;

  static ScanOutcome corrupt() {
    ScanOutcome outcome;
    outcome.verdict = PictureCheck::Verdict::corrupt;
    return outcome;
  }
};

/// What decoding shows of the picture itself.
struct PictureEvidence {
  /// Of the first units: as many as are ever compared. A picture can have sixty million.
  std::vector<std::int16_t> brightness;
  std::vector<int> largestMean;

  void addBrightness(int mean) {
    constexpr std::size_t most = std::size_t{1} << 17U;
    if (brightness.size() < most) {
      brightness.push_back(static_cast<std::int16_t>(mean));
    }
  }
};

/// Coefficients of a progressive picture that are known not to be zero, one bit each: refining
/// scans spend a bit on every one of them.
class ProgressiveBlocks {
 public:
  /// Nothing when the frame claims more blocks than its data can code.
  static std::optional<ProgressiveBlocks> make(const FrameLayout& frame, std::size_t dataSize);

  std::uint64_t& at(std::size_t component, std::size_t row, std::size_t column) {
    Plane& plane = planes_[component];
    return plane.blocks[row * plane.across + column];
  }

 private:
  struct Plane {
    std::size_t across = 0;
    std::vector<std::uint64_t> blocks;
  };
  std::vector<Plane> planes_;
};

/// A scan of a sequential picture (ISO/IEC 10918-1 annex F.2).
ScanOutcome decodeSequential(ByteView data, std::size_t start, const FrameLayout& frame,
                             const ScanLayout& scan, DecoderTables& tables,
                             PictureEvidence& evidence);

/// A scan of a progressive picture (annex G.2).
ScanOutcome decodeProgressive(ByteView data, std::size_t start, const FrameLayout& frame,
                              const ScanLayout& scan, DecoderTables& tables,
                              ProgressiveBlocks& blocks, PictureEvidence& evidence);

/// Goes through the units of a scan: `decodeUnit(reader, unit)` says whether a unit could be
/// decoded, `restart()` resets predictions. Keeps the restart markers and judges the end.
template <typename DecodeUnit, typename Restart>
ScanOutcome decodeUnits(EntropyReader& reader, ByteView data, std::size_t expected,
                        std::size_t restartInterval, DecodeUnit decodeUnit, Restart restart);

/// The difference that `size` bits code (table F.1 and procedure EXTEND).
inline int extendedDifference(std::uint32_t bits, unsigned size) {
  const auto value = static_cast<int>(bits);
  return value < (1 << size >> 1) ? value - (1 << size) + 1 : value;
}

/// Decodes a block's DC difference; nothing when the bits are no code of the table.
inline std::optional<int> decodeDifference(EntropyReader& reader, const HuffmanTable& table) {
  reader.refill();
  const HuffmanTable::Code code = table.decode(reader.peek16());
  if (code.length == 0 || code.symbol > 15) {
    return std::nullopt;
  }
  reader.skip(code.length);
  return extendedDifference(reader.take(code.symbol), code.symbol);
}

/// How a scan stands whose data ran out or stopped making sense.
PictureCheck::Verdict verdictAtStop(const EntropyReader& reader, ByteView data);
/// How a scan stands whose last unit was decoded.
PictureCheck::Verdict verdictAtEnd(const EntropyReader& reader, ByteView data);

template <typename DecodeUnit, typename Restart>
ScanOutcome decodeUnits(EntropyReader& reader, ByteView data, std::size_t expected,
                        std::size_t restartInterval, DecodeUnit decodeUnit, Restart restart) {
  ScanOutcome outcome = ScanOutcome::corrupt();
  outcome.expected = expected;
  std::size_t untilRestart = restartInterval == 0 ? expected : restartInterval;
  unsigned restartNumber = 0;
  for (; outcome.units < expected; ++outcome.units, --untilRestart) {
    if (untilRestart == 0) {
      if (!reader.takeRestart(restartNumber)) {
        outcome.verdict = verdictAtStop(reader, data);
        return outcome;
      }
      restartNumber = (restartNumber + 1) % 8;
      untilRestart = restartInterval;
      restart();
    }
    const bool sound = decodeUnit(reader, outcome.units);
    if (!sound || reader.ranOut()) {
      outcome.verdict = reader.ranOut() ? verdictAtStop(reader, data) : outcome.verdict;
      const std::size_t at = reader.position();
      if (restartInterval == 0 && reader.ranOut() && at + 1 < data.size() && data[at + 1] == 0xD0) {
        outcome.unitsToRestart = outcome.units;
      }
      return outcome;
    }
  }
  outcome.verdict = verdictAtEnd(reader, data);
  return outcome;
}

}  // namespace tallowmark::JPEGRepair
