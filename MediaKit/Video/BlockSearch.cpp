// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/BlockSearch.h"

#include <algorithm>
#include <cmath>

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {

namespace {

constexpr MediaWindow::ReadAhead blockReadAhead{std::size_t{16} << 10U, std::size_t{256} << 10U};

// Bits of evidence. Where a block ends is one of a thousand places.
constexpr double whereDue = 4;
constexpr double endsAtEdge = 10;
constexpr double enough = 14;

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

bool contains(const std::vector<std::uint64_t>& distances, std::uint64_t distance) {
  return std::find(distances.begin(), distances.end(), distance) != distances.end();
}

}  // namespace

BlockSearch::BlockSearch(const ByteSource& source, const BlockLayout& layout)
    : layout_(layout),
      walk_(layout.habits.config, layout.habits.rules),
      window_(source, source.size(), blockReadAhead),
      bitsAllowed_(bitsAtLeast) {
  for (unsigned byte = 0; byte < starts_.size(); ++byte) {
    starts_.at(byte) = walk_.mayStartWith(static_cast<std::uint8_t>(byte));
  }
}

// The first position from `at` on whose byte a block may start with; `end` when there is none.
std::uint64_t BlockSearch::nextStart(std::uint64_t at, std::uint64_t end) {
  while (at < end) {
    const auto held = window_.at(at, tooManyZeros);
    const auto bytes =
        held.first(static_cast<std::size_t>(std::min<std::uint64_t>(held.size(), end - at)));
    if (bytes.empty()) {
      break;
    }
    if (const std::size_t zeros = zerosAtStart(bytes); zeros >= tooManyZeros) {
      at += zeros - (tooManyZeros - 1);
      continue;
    }
    const auto found =
        std::find_if(bytes.begin(), bytes.end(), [&](std::uint8_t byte) { return starts_[byte]; });
    at += static_cast<std::uint64_t>(found - bytes.begin());
    if (found != bytes.end()) {
      break;
    }
  }
  return std::min(at, end);
}

BlockChain BlockSearch::chainAt(std::uint64_t at, std::uint64_t end) {
  BlockChain chain{at, {}, at, 0};
  while (chain.to < end) {
    const auto bytes = window_.at(chain.to, walk_.rules().largestSize);
    const auto held =
        static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), end - chain.to));
    const BlockWalk::Look look = walk_.look(bytes.first(held));
    bitsLooked_ += look.bits;
    if (!look.block) {
      break;
    }
    chain.sizes.push_back(look.block->size);
    chain.to += look.block->size;
    chain.bits += layout_.habits.evidence(*look.block);
  }
  return chain;
}

bool BlockSearch::isBelieved(const BlockChain& chain, std::uint64_t searchedFrom,
                             const ByteRange& stretch, StretchEnd end) {
  if (chain.sizes.empty()) {
    return false;
  }
  const std::uint64_t passed = chain.from - searchedFrom;
  double bits = chain.bits;
  bits +=
      contains(layout_.dueBehind, passed) ? whereDue : -std::log2(static_cast<double>(passed) + 1);
  if (end == StretchEnd::known && contains(layout_.edgeAhead, stretch.upper - chain.to)) {
    bits += endsAtEdge;
  }
  const std::size_t length = layout_.mark.bytes.size();
  if (bits < enough && layout_.mark.bits > 0 && chain.from >= stretch.lower + length) {
    const auto ahead = window_.at(chain.from - length, length);
    bits += ahead.size() >= length && layout_.mark.matches(ahead) ? layout_.mark.bits : 0;
  }
  return bits >= enough;
}

// Codewords find their step again soon after a false start: garbage ahead of a block can walk into
// it and end where it does. Of all starts that lead to the first block's end the likeliest is
// meant.
BlockChain BlockSearch::withBestStart(BlockChain chain) {
  const std::uint64_t end = chain.from + chain.sizes.front();
  double best = evidenceAt(chain.from, end);
  const double rest = chain.bits - best;
  for (std::uint64_t at = nextStart(chain.from + 1, end); at < end && bitsLooked_ < bitsAllowed_;
       at = nextStart(at + 1, end)) {
    if (const double bits = evidenceAt(at, end); bits >= best) {
      best = bits;
      chain.from = at;
      chain.sizes.front() = static_cast<std::uint32_t>(end - at);
    }
  }
  chain.bits = rest + best;
  return chain;
}

// What a block from `at` to `end` proves; nothing when there is none.
double BlockSearch::evidenceAt(std::uint64_t at, std::uint64_t end) {
  const auto bytes = window_.at(at, static_cast<std::size_t>(end - at));
  const auto held = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), end - at));
  const BlockWalk::Look look = walk_.look(bytes.first(held));
  bitsLooked_ += look.bits;
  return look.block && look.block->size == end - at ? layout_.habits.evidence(*look.block) : 0;
}

std::vector<BlockChain> BlockSearch::in(const ByteRange& stretch, StretchEnd end) {
  std::vector<BlockChain> found;
  bitsAllowed_ += stretch.length() * bitsPerByte;
  std::uint64_t searchedFrom = stretch.lower;
  for (std::uint64_t at = stretch.lower; at < stretch.upper && bitsLooked_ < bitsAllowed_;) {
    at = nextStart(at, stretch.upper);
    if (at == stretch.upper) {
      break;
    }
    BlockChain chain = chainAt(at, stretch.upper);
    if (isBelieved(chain, searchedFrom, stretch, end)) {
      if (!contains(layout_.dueBehind, chain.from - searchedFrom)) {
        chain = withBestStart(std::move(chain));
      }
      at = chain.to;
      searchedFrom = at;
      found.push_back(std::move(chain));
    } else {
      ++at;
    }
  }
  return found;
}

}  // namespace tallowmark
