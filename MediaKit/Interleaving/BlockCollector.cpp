// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/BlockCollector.h"

#include <algorithm>
#include <utility>

#include "MediaKit/Interleaving/Stretches.h"

namespace tallowmark {

namespace {

using Anchor = TrackOrder::Anchor;

void addTo(GatheredBlocks& gathered, const BlockChain& chain) {
  std::uint64_t at = chain.from;
  for (const BlockChain::Block& block : chain.blocks) {
    gathered.add(at, block);
    at += block.size;
  }
}

std::uint64_t lengthOf(std::span<const ByteRange> stretches) {
  std::uint64_t length = 0;
  for (const ByteRange& stretch : stretches) length += stretch.length();
  return length;
}

}  // namespace

BlockCollector::BlockCollector(const ByteSource& source, const BlockLayout& layout, bool fromStart)
    : layout_(layout), search_(source, layout), gathered_(layout) {
  if (!fromStart) {
    gathered_.noteLoss();
  }
}

FoundBlocks BlockCollector::result() {
  return gathered_.share();
}

// Whether one chain of blocks leads from the picture before to the one behind, as the reference's
// do: a camera that pauses its pictures goes on with sound.
bool BlockCollector::spans(const std::vector<BlockChain>& chains, const ByteRange& gap) const {
  return chains.size() == 1 && layout_.isDueBehind(chains.front().from - gap.lower) &&
         layout_.isEdgeAhead(gap.upper - chains.front().to);
}

// No more of anything than the reference has, with room for a clip that is not quite like it.
bool BlockCollector::isUsual(std::uint64_t blocks, std::uint64_t others) const {
  if (blocks > layout_.mostBlocks * 2 || (blocks == 0 && !layout_.hasGapsWithoutSound)) {
    return false;
  }
  return others == 0 ? layout_.fewestOthers == 0 : others <= layout_.mostOthers * 2;
}

// The chains of a damaged gap as rows, and which pictures these lie against.
void BlockCollector::addRows(const Content& content, const TornPictures& torn) {
  bool isOpen = false;
  std::uint64_t rowEnd = content.gap.lower;
  Anchor anchor = Anchor::neither;
  for (const BlockChain& chain : content.chains) {
    const bool isFirst = &chain == &content.chains.front();
    const bool fromPicture = layout_.isDueBehind(chain.from - content.gap.lower) ||
                             torn.oneEndsAhead(chain.from, layout_.dueBehind);
    if (fromPicture || !isOpen || !layout_.isDueBehind(chain.from - rowEnd)) {
      anchor = fromPicture ? Anchor::start : Anchor::neither;
      if (!isFirst || !content.soundLeadsFromStart) {
        gathered_.noteLoss();
      }
      gathered_.startRow(anchor);
    }
    addTo(gathered_, chain);
    rowEnd = chain.to;
    const bool toPicture =
        (content.end == StretchEnd::known && layout_.isEdgeAhead(content.gap.upper - chain.to)) ||
        torn.oneStartsBehind(chain.to, layout_.edgeAhead);
    if (toPicture) {
      anchor = anchor == Anchor::start ? Anchor::both : Anchor::end;
      gathered_.anchorRow(anchor);
    }
    isOpen = !toPicture;
  }
}

std::vector<BlockChain> BlockCollector::chainsIn(const ByteRange& gap, StretchEnd end,
                                                 std::span<const ByteRange> others,
                                                 const TornPictures& torn) {
  if (others.empty()) {
    return search_.in(gap, end, torn);
  }
  std::vector<BlockChain> chains;
  for (const ByteRange& piece : rest(gap, others)) {
    const StretchEnd pieceEnd = piece.upper == gap.upper ? end : StretchEnd::unknown;
    for (BlockChain& chain : search_.in(piece, pieceEnd, torn)) {
      chains.push_back(std::move(chain));
    }
  }
  return chains;
}

BlockCollector::Content BlockCollector::look(const ByteRange& gap, bool framesCountOn,
                                             StretchEnd end, std::span<const ByteRange> others,
                                             const TornPictures& torn) {
  Content content{gap, end, chainsIn(gap, end, others, torn), lengthOf(others)};
  content.countsOn = framesCountOn;
  std::uint64_t blocks = 0;
  std::uint64_t sound = 0;
  for (const BlockChain& chain : content.chains) {
    blocks += chain.blocks.size();
    sound += chain.to - chain.from;
  }
  const bool isSpanned = spans(content.chains, gap);
  content.isExplained = isSpanned || sound + content.others == gap.length();
  content.isUsual = framesCountOn && (isSpanned || isUsual(blocks, gap.length() - sound));
  if (!content.chains.empty()) {
    content.soundLeadsFromStart = layout_.isDueBehind(content.chains.front().from - gap.lower);
    content.soundLeadsToEnd = layout_.isEdgeAhead(gap.upper - content.chains.back().to);
  }
  content.isAnothers = framesCountOn && layout_.mostOthers > 0 && content.soundLeadsToEnd;
  return content;
}

// Whether what a gap lost is behind its first blocks. Where other tracks' data stands ahead of
// sound, it is at no usual distance from the picture before; but where sound leads up to pictures
// it should do so here.
bool BlockCollector::losesBehindFirst(const Content& content) const {
  if (content.soundLeadsFromStart || content.chains.empty() || layout_.edgeAhead.empty()) {
    return content.soundLeadsFromStart;
  }
  const std::uint64_t ahead = content.chains.front().from - content.gap.lower;
  return ahead <= layout_.mostOthers && (content.chains.size() > 1 || !content.soundLeadsToEnd);
}

std::vector<ByteRange> BlockCollector::take(const Content& content, std::uint64_t frame,
                                            const TornPictures& torn) {
  if (!content.isUsual) {
    addRows(content, torn);
  } else if (!content.chains.empty()) {
    if (!content.isExplained) {
      gathered_.noteLoss();
    }
    gathered_.startRow(Anchor::both);
    for (const BlockChain& chain : content.chains) addTo(gathered_, chain);
  }
  if (!content.isUsual || !content.isExplained) {
    gathered_.noteLoss();
  }
  gathered_.endGap({.frame = frame,
                    .range = content.gap,
                    .unknown = content.gap.length() - content.others,
                    .countsOn = content.countsOn && content.others == 0,
                    .isUsual = content.isUsual,
                    .isAnothers = content.isAnothers,
                    .leadsFromStart = losesBehindFirst(content)});
  std::vector<ByteRange> sound;
  sound.reserve(content.chains.size());
  for (const BlockChain& chain : content.chains) sound.push_back({chain.from, chain.to});
  return sound;
}

}  // namespace tallowmark
