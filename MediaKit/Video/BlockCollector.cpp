// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/BlockCollector.h"

#include <algorithm>
#include <utility>

#include "MediaKit/Video/Stretches.h"

namespace tallowmark {

namespace {

struct Block {
  std::uint64_t offset = 0;
  std::uint32_t size = 0;
};

std::vector<Block> blocksOf(const std::vector<BlockChain>& chains) {
  std::vector<Block> blocks;
  for (const BlockChain& chain : chains) {
    std::uint64_t at = chain.from;
    for (const std::uint32_t size : chain.sizes) {
      blocks.push_back({at, size});
      at += size;
    }
  }
  return blocks;
}

std::uint64_t lengthOf(std::span<const ByteRange> stretches) {
  std::uint64_t length = 0;
  for (const ByteRange& stretch : stretches) length += stretch.length();
  return length;
}

std::uint64_t unexplained(const ByteRange& gap, std::span<const ByteRange> sound,
                          std::span<const ByteRange> others) {
  return gap.length() - lengthOf(sound) - lengthOf(others);
}

}  // namespace

BlockCollector::BlockCollector(const ByteSource& source, const BlockLayout& layout)
    : layout_(layout),
      search_(source, layout),
      found_{std::vector<SampleList>(layout.tracks.size()), {}, 0} {}

// Whether one chain of blocks leads from the picture before to the one behind, as the reference's
// do: a camera that pauses its pictures goes on with sound.
bool BlockCollector::spans(const std::vector<BlockChain>& chains, const ByteRange& gap) const {
  const auto isUsual = [](const std::vector<std::uint64_t>& distances, std::uint64_t distance) {
    return std::find(distances.begin(), distances.end(), distance) != distances.end();
  };
  return chains.size() == 1 && isUsual(layout_.dueBehind, chains.front().from - gap.lower) &&
         isUsual(layout_.edgeAhead, gap.upper - chains.front().to);
}

// No more of anything than the reference has, with room for a clip that is not quite like it.
bool BlockCollector::isUsual(std::uint64_t blocks, std::uint64_t others) const {
  if (blocks > layout_.mostBlocks * 2 || (blocks == 0 && !layout_.hasGapsWithoutSound)) {
    return false;
  }
  return others == 0 ? layout_.fewestOthers == 0 : others <= layout_.mostOthers * 2;
}

// Gives the blocks of a gap to their tracks; says whether it could.
bool BlockCollector::append(const std::vector<BlockChain>& chains, bool isWhole) {
  const std::vector<Block> blocks = blocksOf(chains);
  const std::size_t tracks = found_.tracks.size();
  const bool takesTurns = layout_.tracksTakeTurnsByGap || layout_.tracksTakeTurnsByBlock;
  if (tracks > 1 && (!isWhole || !takesTurns || blocks.size() % tracks != 0)) {
    return false;
  }
  const std::size_t share = blocks.size() / tracks;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const std::size_t track = layout_.tracksTakeTurnsByGap ? i / share : i % tracks;
    found_.tracks[track].append({.offset = blocks[i].offset,
                                 .size = blocks[i].size,
                                 .duration = layout_.habits.ticks,
                                 .isSync = true});
  }
  return true;
}

// How many blocks follow the gap's start, and one another, as the reference's do.
std::uint64_t BlockCollector::blocksAtStart(const std::vector<BlockChain>& chains,
                                            std::uint64_t start) const {
  std::uint64_t blocks = 0;
  for (const BlockChain& chain : chains) {
    if (std::find(layout_.dueBehind.begin(), layout_.dueBehind.end(), chain.from - start) ==
        layout_.dueBehind.end()) {
      break;
    }
    blocks += chain.sizes.size();
    start = chain.to;
  }
  return blocks;
}

std::vector<BlockChain> BlockCollector::chainsIn(const ByteRange& gap, StretchEnd end,
                                                 std::span<const ByteRange> others,
                                                 const TornPictures& torn) {
  std::vector<BlockChain> chains;
  for (const ByteRange& piece : rest(gap, others)) {
    const StretchEnd pieceEnd = piece.upper == gap.upper ? end : StretchEnd::unknown;
    for (BlockChain& chain : search_.in(piece, pieceEnd, torn)) {
      chains.push_back(std::move(chain));
    }
  }
  return chains;
}

BlockCollector::Taken BlockCollector::take(const ByteRange& gap, std::uint64_t frame,
                                           bool framesCountOn, StretchEnd end,
                                           std::span<const ByteRange> others,
                                           const TornPictures& torn) {
  const std::vector<BlockChain> chains = chainsIn(gap, end, others, torn);
  const std::uint64_t before = found_.tracks.front().size();
  std::uint64_t bytes = 0;
  std::uint64_t blocks = 0;
  for (const BlockChain& chain : chains) {
    bytes += chain.to - chain.from;
    blocks += chain.sizes.size();
  }
  Taken taken{{}, framesCountOn && (spans(chains, gap) || isUsual(blocks, gap.length() - bytes))};
  if (append(chains, taken.isUsual)) {
    for (const BlockChain& chain : chains) taken.sound.push_back({chain.from, chain.to});
    found_.bytes += bytes;
  } else {
    taken.isUsual = false;
  }
  const std::uint64_t behind = found_.tracks.front().size();
  if (behind > before || !taken.isUsual) {
    const std::uint64_t atStart =
        behind > before ? blocksAtStart(chains, gap.lower) / found_.tracks.size() : 0;
    found_.gaps.push_back({frame, behind, before + atStart, !taken.isUsual,
                           taken.isUsual ? 0 : unexplained(gap, taken.sound, others)});
  }
  return taken;
}

}  // namespace tallowmark
