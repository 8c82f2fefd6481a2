// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/BlockCollector.h"

#include <algorithm>
#include <utility>

#include "MediaKit/Video/Stretches.h"

namespace tallowmark {

namespace {

using Anchor = TrackOrder::Anchor;

void addTo(BlockRow& row, const BlockChain& chain) {
  std::uint64_t at = chain.from;
  for (const std::uint32_t size : chain.sizes) {
    row.blocks.push_back({at, size});
    at += size;
  }
  row.to = chain.to;
}

std::uint64_t lengthOf(std::span<const ByteRange> stretches) {
  std::uint64_t length = 0;
  for (const ByteRange& stretch : stretches) length += stretch.length();
  return length;
}

}  // namespace

BlockCollector::BlockCollector(const ByteSource& source, const BlockLayout& layout)
    : layout_(layout),
      order_(layout.order),
      search_(source, layout),
      found_{std::vector<SampleList>(layout.tracks.size()), {}, 0, 0} {}

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
std::vector<BlockRow> BlockCollector::rowsOf(const std::vector<BlockChain>& chains,
                                             const ByteRange& gap, StretchEnd end,
                                             const TornPictures& torn) const {
  std::vector<BlockRow> rows;
  bool isOpen = false;
  for (const BlockChain& chain : chains) {
    const bool fromPicture = layout_.isDueBehind(chain.from - gap.lower) ||
                             torn.oneEndsAhead(chain.from, layout_.dueBehind);
    if (fromPicture || !isOpen || !layout_.isDueBehind(chain.from - rows.back().to)) {
      rows.push_back({{}, fromPicture ? Anchor::start : Anchor::neither, 0});
    }
    addTo(rows.back(), chain);
    const bool toPicture =
        (end == StretchEnd::known && layout_.isEdgeAhead(gap.upper - chain.to)) ||
        torn.oneStartsBehind(chain.to, layout_.edgeAhead);
    if (toPicture) {
      rows.back().anchor = rows.back().anchor == Anchor::start ? Anchor::both : Anchor::end;
    }
    isOpen = !toPicture;
  }
  return rows;
}

// Gives the blocks of a row to their tracks; says how many of a track it takes the time of. Where
// one track's lack beside another's, silence will stand: behind those that lie against the picture
// before, else ahead.
std::uint64_t BlockCollector::append(const BlockRow& row) {
  const auto told = order_.tell(row.blocks.size(), row.anchor);
  std::vector<std::vector<Sample>> shares(found_.tracks.size());
  for (std::size_t i = 0; i < told.size(); ++i) {
    const auto& [offset, size] = row.blocks[i];
    (told[i] ? found_.bytes : found_.unplaced) += size;
    if (told[i]) {
      shares[*told[i]].push_back(
          {.offset = offset, .size = size, .duration = layout_.habits.ticks, .isSync = true});
    }
  }
  std::size_t most = 0;
  for (const auto& share : shares) most = std::max(most, share.size());
  for (std::size_t track = 0; track < shares.size(); ++track) {
    std::vector<Sample>& share = shares[track];
    share.insert(row.anchor == Anchor::end ? share.begin() : share.end(), most - share.size(),
                 {.offset = row.to, .size = 0, .duration = layout_.habits.ticks, .isSync = true});
    for (const Sample& block : share) found_.tracks[track].append(block);
  }
  return most;
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

BlockCollector::Content BlockCollector::look(const ByteRange& gap, bool framesCountOn,
                                             StretchEnd end, std::span<const ByteRange> others,
                                             const TornPictures& torn) {
  Content content{gap, end, chainsIn(gap, end, others, torn), lengthOf(others)};
  std::uint64_t blocks = 0;
  std::uint64_t sound = 0;
  for (const BlockChain& chain : content.chains) {
    blocks += chain.sizes.size();
    sound += chain.to - chain.from;
  }
  content.isUsual =
      framesCountOn && (spans(content.chains, gap) || isUsual(blocks, gap.length() - sound));
  if (!content.chains.empty()) {
    content.soundLeadsFromStart = layout_.isDueBehind(content.chains.front().from - gap.lower);
    content.soundLeadsToEnd = layout_.isEdgeAhead(gap.upper - content.chains.back().to);
  }
  return content;
}

BlockCollector::Taken BlockCollector::take(const Content& content, std::uint64_t frame,
                                           const TornPictures& torn) {
  const ByteRange& gap = content.gap;
  const std::uint64_t before = found_.tracks.front().size();
  const std::uint64_t placedBefore = found_.bytes;
  BlockRow all{{}, Anchor::both, 0};
  Taken taken;
  for (const BlockChain& chain : content.chains) {
    addTo(all, chain);
    taken.sound.push_back({chain.from, chain.to});
  }
  taken.isUsual = content.isUsual;
  std::uint64_t atStart = 0;
  if (taken.isUsual) {
    atStart = append(all);
    order_.learnCount(all.blocks.size());
    taken.isUsual = atStart > 0 || all.blocks.empty();
  } else {
    for (const BlockRow& row : rowsOf(content.chains, gap, content.end, torn)) {
      const std::uint64_t blocks = append(row);
      const bool isFirst = layout_.isDueBehind(row.blocks.front().offset - gap.lower);
      atStart += isFirst ? blocks : 0;
    }
  }
  const std::uint64_t behind = found_.tracks.front().size();
  if (behind > before || !taken.isUsual) {
    const std::uint64_t lost = gap.length() - content.others - (found_.bytes - placedBefore);
    found_.gaps.push_back(
        {frame, behind, before + atStart, !taken.isUsual, taken.isUsual ? 0 : lost});
  }
  return taken;
}

}  // namespace tallowmark
