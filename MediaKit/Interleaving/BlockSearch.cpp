// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/BlockSearch.h"

#include <algorithm>
#include <cmath>
#include <tuple>

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {

namespace {

constexpr MediaWindow::ReadAhead blockReadAhead{std::size_t{16} << 10U, std::size_t{256} << 10U};

// Bits of evidence. Where a block ends is one of a thousand places.
constexpr double whereDue = 4;
constexpr double whereAmongOthers = 4;
constexpr double endsAtEdge = 10;
constexpr double enoughEvidence = 14;
constexpr double beyondQuestion = 24;
/// Further than this from a picture, and from sound that was found, a block proves little by
/// itself.
constexpr std::uint64_t nearby = std::uint64_t{64} << 10U;

// A position costs a few bits of walking where nothing is, a few hundred where sound is; only data
// made for it costs more.
constexpr std::uint64_t bitsPerByte = 256;
constexpr std::uint64_t bitsAtLeast = std::uint64_t{1} << 24U;

// Zeros read as empty channels, one after the other, and a block has eight elements at most: this
// many bytes of nothing else begin no block (ISO/IEC 14496-3 §4.4.2.1).
constexpr std::size_t tooManyZeros = 32;

// How many zeros `bytes` begin with.
std::size_t zerosAtStart(std::span<const std::uint8_t> bytes) {
  std::size_t count = 0;
  while (count + 8 <= bytes.size() && bigEndianWord(bytes.data() + count) == 0) {
    count += 8;
  }
  while (count < bytes.size() && bytes[count] == 0) {
    ++count;
  }
  return count;
}

/// What of a stretch is far from both of its ends.
ByteRange farFrom(std::uint64_t lower, std::uint64_t upper) {
  const bool hasMiddle = upper - lower > 2 * nearby;
  return hasMiddle ? ByteRange{lower + nearby, upper - nearby} : ByteRange{};
}

}  // namespace

bool TornPictures::oneEndsAhead(std::uint64_t at,
                                const std::vector<std::uint64_t>& distances) const {
  return std::any_of(distances.begin(), distances.end(), [&](std::uint64_t distance) {
    return distance <= at && ends.contains(at - distance);
  });
}

bool TornPictures::oneStartsBehind(std::uint64_t at,
                                   const std::vector<std::uint64_t>& distances) const {
  return std::any_of(distances.begin(), distances.end(),
                     [&](std::uint64_t distance) { return starts.contains(at + distance); });
}

BlockSearch::BlockSearch(const ByteSource& source, const BlockLayout& layout)
    : layout_(layout),
      habits_(layout.kinds.front()),
      walk_(layout.walk()),
      window_(source, source.size(), blockReadAhead),
      bitsAllowed_(bitsAtLeast) {
  for (unsigned byte = 0; byte < starts_.size(); ++byte) {
    starts_.at(byte) = walk_.mayStartWith(static_cast<std::uint8_t>(byte));
  }
}

const BlockOpenings& BlockSearch::usualOpenings() {
  if (!usualOpenings_) {
    ByteValues usual = starts_;
    for (unsigned byte = 0; byte < usual.size(); ++byte) {
      usual.at(byte) =
          usual.at(byte) && ((unsigned{habits_.usualFirstElements} >> (byte >> 5U)) & 1U) != 0;
    }
    usualOpenings_.emplace(habits_, usual);
  }
  return *usualOpenings_;
}

void BlockSearch::learn(const BlockTraits& traits) {
  const BlockTraits before = habits_.traits;
  habits_.traits.add(traits);
  const auto opening = [](const BlockTraits& of) {
    return std::tuple(of.longBands, of.shortBands, of.lowestGain, of.highestGain);
  };
  if (opening(habits_.traits) != opening(before)) {
    usualOpenings_.reset();
  }
}

// Whether a chain shows how this clip's blocks look: one that leads from where sound is due to a
// picture, or any among other sound, where chains are short.
bool BlockSearch::isBeyondDoubt(const BlockChain& chain, double bits, std::uint64_t searchedFrom,
                                bool endsAtPicture, bool isDue) const {
  return (isDue && endsAtPicture && bits >= beyondQuestion) ||
         (layout_.beside.longest > 0 &&
          (isDue || layout_.beside.mayFill(chain.from - searchedFrom)));
}

// The first position from `at` on at which a block may start; `end` when there is none. Within
// `far` only such as begin like this camera's are worth a walk.
std::uint64_t BlockSearch::nextStart(std::uint64_t at, std::uint64_t end, const ByteRange& far) {
  while (at < end) {
    const bool isFar = at >= far.lower && at < far.upper;
    const std::uint64_t to = isFar ? far.upper : at < far.lower ? std::min(end, far.lower) : end;
    const auto held = window_.at(at, tooManyZeros);
    const auto bytes =
        held.first(static_cast<std::size_t>(std::min<std::uint64_t>(held.size(), to - at)));
    if (held.empty()) {
      break;
    }
    const std::size_t zeros = held.front() == 0 ? zerosAtStart(held) : 0;
    if (zeros >= tooManyZeros) {
      at += zeros - (tooManyZeros - 1);
      continue;
    }
    const auto passed = isFar ? usualOpenings().find(habits_, held, bytes.size())
                              : static_cast<std::size_t>(
                                    std::find_if(bytes.begin(), bytes.end(),
                                                 [&](std::uint8_t byte) { return starts_[byte]; }) -
                                    bytes.begin());
    if (passed == 0) {
      break;
    }
    at += passed;
  }
  return std::min(at, end);
}

const SoundHabits& BlockSearch::habitsOf(std::uint8_t kind) const {
  return kind == 0 ? habits_ : layout_.kinds[kind];
}

BlockChain::Block BlockSearch::blockOf(const RawBlock& block) const {
  return {block.size, layout_.kindOf(block.pattern), block.windows};
}

BlockChain BlockSearch::chainAt(std::uint64_t at, std::uint64_t end) {
  BlockChain chain{at, {}, at, 0, {}};
  while (chain.to < end) {
    const auto bytes = window_.at(chain.to, static_cast<std::size_t>(std::min<std::uint64_t>(
                                                walk_.rules().largestSize, end - chain.to)));
    const auto held =
        static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), end - chain.to));
    const BlockWalk::Look look = walk_.look(bytes.first(held));
    bitsLooked_ += look.bits;
    if (!look.block) {
      break;
    }
    const BlockChain::Block block = blockOf(*look.block);
    chain.blocks.push_back(block);
    chain.to += block.size;
    chain.bits += habitsOf(block.kind).evidence(*look.block, bytes.first(block.size));
    if (block.kind == 0) {
      chain.traits.add(look.block->traits);
    }
  }
  return chain;
}

bool BlockSearch::isDue(const BlockChain& chain, std::uint64_t searchedFrom,
                        const TornPictures& torn) const {
  return layout_.isDueBehind(chain.from - searchedFrom) ||
         torn.oneEndsAhead(chain.from, layout_.dueBehind);
}

bool BlockSearch::endsAtPicture(const BlockChain& chain, const ByteRange& stretch, StretchEnd end,
                                const TornPictures& torn) const {
  return (end == StretchEnd::known && layout_.isEdgeAhead(stretch.upper - chain.to)) ||
         torn.oneStartsBehind(chain.to, layout_.edgeAhead);
}

bool BlockSearch::hasMark(const SoundMark& mark, std::uint64_t at) {
  const auto bytes = window_.at(at, mark.bytes.size());
  return mark.bits > 0 && bytes.size() >= mark.bytes.size() && mark.matches(bytes);
}

// What a chain and its place prove. Every position passed could have held a false start; of those
// that lead exactly to a picture, only such as are not too far from it. Where other sound stands
// between blocks it is as good as certain that there is one.
double BlockSearch::evidenceOf(const BlockChain& chain, std::uint64_t searchedFrom,
                               const ByteRange& stretch, StretchEnd end, const TornPictures& torn) {
  double bits = chain.bits;
  std::uint64_t rivals = chain.from - searchedFrom;
  const SoundBeside& beside = layout_.beside;
  const bool due = isDue(chain, searchedFrom, torn);
  bool isBeside = beside.isUncompressed ? due : beside.mayFill(rivals);
  if (endsAtPicture(chain, stretch, end, torn)) {
    bits += endsAtEdge;
    rivals = std::min<std::uint64_t>(
        rivals, std::uint64_t{walk_.rules().largestSize} * chain.blocks.size());
  } else if (beside.opening.bits > 0) {
    const bool opensOther = chain.to < stretch.upper && hasMark(beside.opening, chain.to);
    bits += opensOther ? std::min(beside.opening.bits, endsAtEdge) : 0;
    isBeside = isBeside && opensOther;
  }
  bits += (due ? whereDue : 0) + (isBeside ? whereAmongOthers : 0);
  bits -= due || isBeside ? 0 : std::log2(static_cast<double>(rivals) + 1);
  const std::size_t length = layout_.mark.bytes.size();
  if (bits < enoughEvidence && chain.from >= stretch.lower + length) {
    bits += hasMark(layout_.mark, chain.from - length) ? layout_.mark.bits : 0;
  }
  return bits;
}

// Codewords find their step again soon after a false start: garbage ahead of a block can walk into
// it and end where it does. Of all starts that lead to the first block's end the likeliest is
// meant.
BlockChain BlockSearch::withBestStart(BlockChain chain) {
  const std::uint64_t end = chain.from + chain.blocks.front().size;
  double best = judge(chain.from, end).bits;
  const double rest = chain.bits - best;
  for (std::uint64_t at = nextStart(chain.from + 1, end, {});
       at < end && bitsLooked_ < bitsAllowed_; at = nextStart(at + 1, end, {})) {
    if (const Judged judged = judge(at, end); judged.bits >= best) {
      best = judged.bits;
      chain.from = at;
      chain.blocks.front() = judged.block;
      chain.blocks.front().size = static_cast<std::uint32_t>(end - at);
    }
  }
  chain.bits = rest + best;
  return chain;
}

// A false start that leads into a chain may have run over its first blocks: takes back those that
// end exactly where the chain begins.
BlockChain BlockSearch::withBlocksAhead(BlockChain chain, std::uint64_t searchedFrom) {
  const std::uint64_t reach = walk_.rules().largestSize;
  while (chain.from > searchedFrom && bitsLooked_ < bitsAllowed_) {
    const std::uint64_t first = std::max(searchedFrom, chain.from - std::min(chain.from, reach));
    BlockChain ahead{first, {}, chain.from, 0, {}};
    for (std::uint64_t at = nextStart(first, chain.from, {});
         at < chain.from && bitsLooked_ < bitsAllowed_; at = nextStart(at + 1, chain.from, {})) {
      const Judged judged = judge(at, chain.from);
      if (judged.bits > 0 && judged.bits >= ahead.bits) {
        ahead.bits = judged.bits;
        ahead.from = at;
        ahead.blocks = {judged.block};
      }
    }
    const auto rivals = static_cast<double>(ahead.from - first);
    if (ahead.bits + endsAtEdge - std::log2(rivals + 1) < enoughEvidence) {
      break;
    }
    chain.blocks.insert(chain.blocks.begin(), ahead.blocks.front());
    chain.bits += ahead.bits;
    chain.from = ahead.from;
  }
  return chain;
}

// The block from `at` to `end`, if there is one.
BlockSearch::Judged BlockSearch::judge(std::uint64_t at, std::uint64_t end) {
  const auto bytes = window_.at(at, static_cast<std::size_t>(end - at));
  const auto held = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), end - at));
  const BlockWalk::Look look = walk_.look(bytes.first(held));
  bitsLooked_ += look.bits;
  if (!look.block || look.block->size != end - at) {
    return {};
  }
  const BlockChain::Block block = blockOf(*look.block);
  return {block, habitsOf(block.kind).evidence(*look.block, bytes.first(held))};
}

std::vector<BlockChain> BlockSearch::in(const ByteRange& stretch, StretchEnd end,
                                        const TornPictures& torn) {
  std::vector<BlockChain> found;
  bitsAllowed_ += stretch.length() * bitsPerByte;
  window_.readAheadUpTo(stretch.upper);
  std::uint64_t searchedFrom = stretch.lower;
  for (std::uint64_t at = stretch.lower; at < stretch.upper && bitsLooked_ < bitsAllowed_;) {
    at = nextStart(at, stretch.upper, farFrom(searchedFrom, stretch.upper));
    if (at == stretch.upper) {
      break;
    }
    BlockChain chain = chainAt(at, stretch.upper);
    const double bits =
        chain.blocks.empty() ? 0 : evidenceOf(chain, searchedFrom, stretch, end, torn);
    if (bits < enoughEvidence) {
      ++at;
      continue;
    }
    const bool due = isDue(chain, searchedFrom, torn);
    if (isBeyondDoubt(chain, bits, searchedFrom, endsAtPicture(chain, stretch, end, {}), due)) {
      learn(chain.traits);
    }
    if (!due) chain = withBlocksAhead(withBestStart(std::move(chain)), searchedFrom);
    at = chain.to;
    searchedFrom = at;
    found.push_back(std::move(chain));
  }
  return found;
}

}  // namespace tallowmark
