// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "MediaKit/Container/MediaWindow.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Interleaving/BlockLayout.h"
#include "MediaKit/Interleaving/BlockOpenings.h"
#include "MediaKit/Sound/BlockWalk.h"

namespace tallowmark {

/// Blocks of compressed sound that stand one behind the other.
struct BlockChain {
  struct Block {
    std::uint32_t size = 0;
    /// Of the layout's kinds.
    std::uint8_t kind = 0;
    WindowSequence windows = WindowSequence::onlyLong;
  };
  std::uint64_t from = 0;
  std::vector<Block> blocks;
  /// Position behind the last one.
  std::uint64_t to = 0;
  /// How much the blocks by themselves prove, and what they make use of.
  double bits = 0;
  BlockTraits traits;
};

/// What stands behind a stretch.
enum class StretchEnd {
  /// A picture or a box: a chain that ends where the reference's do ends where it should.
  known,
  unknown
};

/// Pictures in a stretch that are torn, but whose heads tell where they stood: sound may end where
/// one starts and start where one ends.
struct TornPictures {
  std::set<std::uint64_t> starts;
  std::set<std::uint64_t> ends;

  /// Whether one ends that far ahead of `at`, or starts that far behind it.
  bool oneEndsAhead(std::uint64_t at, const std::vector<std::uint64_t>& distances) const;
  bool oneStartsBehind(std::uint64_t at, const std::vector<std::uint64_t>& distances) const;
};

/// Finds AAC blocks in stretches of a damaged file. One block proves little, for other data walks
/// as one now and then; a chain of them, or one that leads exactly from a frame to the next, does.
class BlockSearch {
 public:
  /// Both must outlive it.
  BlockSearch(const ByteSource& source, const BlockLayout& layout);

  /// The chains in `stretch` that are believed, in order. Takes time linear in all stretches so
  /// far; one made to be slow is given up part of the way. Throws DeviceError.
  std::vector<BlockChain> in(const ByteRange& stretch, StretchEnd end, const TornPictures& torn);

 private:
  const BlockOpenings& usualOpenings();
  void learn(const BlockTraits& traits);
  bool isBeyondDoubt(const BlockChain& chain, double bits, std::uint64_t searchedFrom,
                     bool endsAtPicture, bool isDue) const;
  std::uint64_t nextStart(std::uint64_t at, std::uint64_t end, const ByteRange& far);
  BlockChain chainAt(std::uint64_t at, std::uint64_t end);
  const SoundHabits& habitsOf(std::uint8_t kind) const;
  BlockChain::Block blockOf(const RawBlock& block) const;
  /// A block, and how much it proves.
  struct Judged {
    BlockChain::Block block;
    double bits = 0;
  };
  Judged judge(std::uint64_t at, std::uint64_t end);
  BlockChain withBestStart(BlockChain chain);
  BlockChain withBlocksAhead(BlockChain chain, std::uint64_t searchedFrom);
  bool isDue(const BlockChain& chain, std::uint64_t searchedFrom, const TornPictures& torn) const;
  bool endsAtPicture(const BlockChain& chain, const ByteRange& stretch, StretchEnd end,
                     const TornPictures& torn) const;
  bool hasMark(const SoundMark& mark, std::uint64_t at);
  double evidenceOf(const BlockChain& chain, std::uint64_t searchedFrom, const ByteRange& stretch,
                    StretchEnd end, const TornPictures& torn);

  const BlockLayout& layout_;
  /// The reference's of the first kind, and what blocks beyond doubt showed of this clip's.
  SoundHabits habits_;
  BlockWalk walk_;
  MediaWindow window_;
  ByteValues starts_{};
  /// What this camera's blocks open with; made anew when more of them is known.
  std::optional<BlockOpenings> usualOpenings_;
  std::uint64_t bitsLooked_ = 0;
  std::uint64_t bitsAllowed_;
};

}  // namespace tallowmark
