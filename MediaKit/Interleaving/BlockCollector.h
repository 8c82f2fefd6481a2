// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "MediaKit/Interleaving/BlockLayout.h"
#include "MediaKit/Interleaving/BlockSearch.h"
#include "MediaKit/Interleaving/BlockTracks.h"

namespace tallowmark {

/// Gathers the AAC blocks of a walk, gap by gap in file order. Several tracks that look alike are
/// told apart in the end, by the order of all blocks; what could be of several is left, for one
/// track must not speak in another.
class BlockCollector {
 public:
  /// Both must outlive it. `fromStart`: nothing is missing ahead of the first gap.
  BlockCollector(const ByteSource& source, const BlockLayout& layout, bool fromStart);

  /// What stands in a gap.
  struct Content {
    ByteRange gap;
    StretchEnd end = StretchEnd::unknown;
    std::vector<BlockChain> chains;
    /// Bytes of what is known to be no sound.
    std::uint64_t others = 0;
    /// Nothing is missing between the pictures around it.
    bool countsOn = false;
    /// The gap is one as the reference has them: nothing was lost in it.
    bool isUsual = false;
    /// What else is in it is another track's: the pictures around it count on, and the reference
    /// has such data, if not as much, beside sound that ends against a picture.
    bool isAnothers = false;
    /// Nothing in it but sound and what is known to be none.
    bool isExplained = false;
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

  /// Takes the sound of a gap that picture number `frame` follows. Returns the blocks' stretches,
  /// in order, also those of blocks whose track will not be told.
  std::vector<ByteRange> take(const Content& content, std::uint64_t frame,
                              const TornPictures& torn);

  /// What all gaps gave; call it once.
  FoundBlocks result();

 private:
  std::vector<BlockChain> chainsIn(const ByteRange& gap, StretchEnd end,
                                   std::span<const ByteRange> others, const TornPictures& torn);
  bool losesBehindFirst(const Content& content) const;
  bool spans(const std::vector<BlockChain>& chains, const ByteRange& gap) const;
  bool isUsual(std::uint64_t blocks, std::uint64_t others) const;
  void addRows(const Content& content, const TornPictures& torn);

  const BlockLayout& layout_;
  BlockSearch search_;
  GatheredBlocks gathered_;
};

}  // namespace tallowmark
