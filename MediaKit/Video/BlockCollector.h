// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "MediaKit/Container/SampleList.h"
#include "MediaKit/Video/BlockLayout.h"
#include "MediaKit/Video/BlockSearch.h"

namespace tallowmark {

/// Sound between two pictures, or a stretch that nothing explains.
struct SoundGap {
  /// Number of the picture behind it.
  std::uint64_t frame = 0;
  /// Blocks of a track up to the gap's end, and up to where in it something is missing.
  std::uint64_t blocksBehind = 0;
  std::uint64_t blocksBeforeLoss = 0;
  bool isLoss = false;
  /// Bytes of a loss that nothing explains.
  std::uint64_t unexplained = 0;
};

/// AAC sound found in a damaged file.
struct FoundBlocks {
  /// One list for each of the layout's tracks, of equal length. Blocks without a size stand where a
  /// track lost one that another track has.
  std::vector<SampleList> tracks;
  std::vector<SoundGap> gaps;
  std::uint64_t bytes = 0;
  /// Bytes of blocks whose track cannot be told.
  std::uint64_t unplaced = 0;

  bool empty() const { return tracks.empty() || tracks.front().empty(); }
};

/// Blocks of sound that follow one another with no picture in between.
struct BlockRow {
  struct Block {
    std::uint64_t offset = 0;
    std::uint32_t size = 0;
  };
  std::vector<Block> blocks;
  TrackOrder::Anchor anchor = TrackOrder::Anchor::neither;
  std::uint64_t to = 0;
};

/// Gathers the AAC blocks of a walk, gap by gap in file order. Several tracks that look alike are
/// told apart by their place in a gap; what could be of several is left, for one track must not
/// speak in another.
class BlockCollector {
 public:
  /// Both must outlive it.
  BlockCollector(const ByteSource& source, const BlockLayout& layout);

  /// What stands in a gap.
  struct Content {
    ByteRange gap;
    StretchEnd end = StretchEnd::unknown;
    std::vector<BlockChain> chains;
    /// Bytes of what is known to be no sound.
    std::uint64_t others = 0;
    /// The gap is one as the reference has them: nothing was lost in it.
    bool isUsual = false;
    /// Sound begins where the reference's does behind a picture, and ends where it does ahead of
    /// one.
    bool soundLeadsFromStart = false;
    bool soundLeadsToEnd = false;
  };
  /// Looks for the sound of a gap. `framesCountOn`: nothing is missing between the pictures around
  /// it. `others`: what in it is known to be no sound, in order; `torn`: pictures in it that are
  /// not whole. Throws DeviceError.
  Content look(const ByteRange& gap, bool framesCountOn, StretchEnd end,
               std::span<const ByteRange> others, const TornPictures& torn);

  /// What a gap gave.
  struct Taken {
    /// The blocks' stretches, in order, also those of blocks whose track cannot be told.
    std::vector<ByteRange> sound;
    /// As before, and the tracks of its blocks can be told.
    bool isUsual = false;
  };
  /// Takes the sound of a gap that picture number `frame` follows.
  Taken take(const Content& content, std::uint64_t frame, const TornPictures& torn);

  FoundBlocks result() { return std::move(found_); }

 private:
  std::vector<BlockChain> chainsIn(const ByteRange& gap, StretchEnd end,
                                   std::span<const ByteRange> others, const TornPictures& torn);
  bool spans(const std::vector<BlockChain>& chains, const ByteRange& gap) const;
  bool isUsual(std::uint64_t blocks, std::uint64_t others) const;
  std::vector<BlockRow> rowsOf(const std::vector<BlockChain>& chains, const ByteRange& gap,
                               StretchEnd end, const TornPictures& torn) const;
  std::uint64_t append(const BlockRow& row);

  const BlockLayout& layout_;
  /// The reference's, and what whole gaps showed of this clip's.
  TrackOrder order_;
  BlockSearch search_;
  FoundBlocks found_;
};

}  // namespace tallowmark
