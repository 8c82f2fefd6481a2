// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Sound/AACConfig.h"
#include "MediaKit/Sound/ScalefactorBands.h"

namespace tallowmark {

/// The channel elements of a block in order, each a byte of a set top bit, the element's kind and
/// its instance tag, the last one lowest. Fill and data elements do not count.
using ElementPattern = std::uint64_t;

/// Elements of a block (ISO/IEC 14496-3 §4.4.2.1).
enum class BlockElement : std::uint8_t {
  singleChannel,
  channelPair,
  coupling,
  lowFrequency,
  data,
  programConfig,
  fill,
  end
};

/// Coding tools that blocks may use, one bit each.
namespace BlockTool {
inline constexpr std::uint8_t pulses = 1;
inline constexpr std::uint8_t noiseShaping = 2;
inline constexpr std::uint8_t shortWindows = 4;
inline constexpr std::uint8_t ownWindows = 8;  ///< a pair of channels without a common window
inline constexpr std::uint8_t sidePerBand = 16;
inline constexpr std::uint8_t sideEverywhere = 32;
}  // namespace BlockTool

/// What a block, or many blocks together, make use of.
struct BlockTraits {
  /// Bit n: a long (or short) window codes n scalefactor bands.
  std::uint64_t longBands = 0;
  std::uint64_t shortBands = 0;
  /// Bit n: codebook n.
  std::uint16_t books = 0;
  /// Bits of BlockTool.
  std::uint8_t tools = 0;
  /// Of the channels' global gains.
  std::uint8_t lowestGain = 255;
  std::uint8_t highestGain = 0;

  void add(const BlockTraits& more);
};

/// How a block's windows overlap its neighbours' (ISO/IEC 14496-3 §4.4.2.6, window_sequence).
enum class WindowSequence : std::uint8_t { onlyLong, longStart, eightShort, longStop };

/// A raw data block: one block of sound over all channels.
struct RawBlock {
  /// Bytes.
  std::uint32_t size = 0;
  ElementPattern pattern = 0;
  BlockTraits traits;
  BlockElement firstElement = BlockElement::end;
  /// Of its first channel.
  WindowSequence windows = WindowSequence::onlyLong;
  /// The bits behind the last element up to the next byte are zeros.
  bool isPaddedWithZeros = true;
};

/// What a camera's blocks have in common beyond the syntax.
struct BlockRules {
  /// Empty: any pattern.
  std::vector<ElementPattern> patterns;
  /// Bit n: blocks may begin with elements of kind n.
  std::uint8_t firstElements = 0xFF;
  /// Bytes; no block is larger.
  std::uint32_t largestSize = 8192;
  bool paddingIsZero = false;
};

/// Tells where a block ends by walking its syntax, with the Huffman codebooks but without making
/// sound of it (ISO/IEC 14496-3 §4.4.2, AAC-LC). Fill elements are passed over, and with them what
/// band replication adds.
class BlockWalk {
 public:
  explicit BlockWalk(const AACConfig& config, BlockRules rules = {});

  const AACConfig& config() const { return config_; }
  const BlockRules& rules() const { return rules_; }

  /// What was learnt by looking at a position.
  struct Look {
    std::optional<RawBlock> block;
    /// How far the walk came before it ended or was refused: what the look cost.
    std::size_t bits = 0;
  };
  /// Looks for a block that starts `bytes` and is all there. Takes time bounded by the largest
  /// block.
  Look look(std::span<const std::uint8_t> bytes) const;
  /// The block of a look alone.
  std::optional<RawBlock> at(std::span<const std::uint8_t> bytes) const {
    return look(bytes).block;
  }

  /// Whether a block may start with this byte: a quick refusal ahead of `at`.
  bool mayStartWith(std::uint8_t byte) const;

 private:
  AACConfig config_;
  ScalefactorBands bands_;
  BlockRules rules_;
};

}  // namespace tallowmark
