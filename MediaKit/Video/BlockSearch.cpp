// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/BlockSearch.h"

#include <algorithm>
#include <cmath>

namespace tallowmark {

namespace {

constexpr std::size_t readAhead = std::size_t{256} << 10U;

// Bits of evidence. Random bytes walk as a block of a known pattern at about one position in 2^18;
// where a block ends is one of a thousand places.
constexpr double perBlock = 18;
constexpr double whereDue = 4;
constexpr double endsAtEdge = 10;
constexpr double enough = 12;

// A position costs a few bits of walking where nothing is, a few hundred where sound is; only data
// made for it costs more.
constexpr std::uint64_t bitsPerByte = 64;
constexpr std::uint64_t bitsAtLeast = std::uint64_t{1} << 24U;

}  // namespace

BlockSearch::BlockSearch(const ByteSource& source, const BlockWalk& walk)
    : walk_(walk), window_(source, source.size(), readAhead) {
  for (unsigned byte = 0; byte < starts_.size(); ++byte) {
    starts_.at(byte) = walk.mayStartWith(static_cast<std::uint8_t>(byte));
  }
}

// The first position from `at` on whose byte a block may start with; `end` when there is none.
std::uint64_t BlockSearch::nextStart(std::uint64_t at, std::uint64_t end) {
  while (at < end) {
    const auto bytes = window_.at(at, 1);
    const auto limit = static_cast<std::ptrdiff_t>(std::min<std::uint64_t>(bytes.size(), end - at));
    const auto found = std::find_if(bytes.begin(), bytes.begin() + limit,
                                    [&](std::uint8_t byte) { return starts_[byte]; });
    at += static_cast<std::uint64_t>(found - bytes.begin());
    if (limit == 0 || found != bytes.begin() + limit) {
      break;
    }
  }
  return std::min(at, end);
}

BlockChain BlockSearch::chainAt(std::uint64_t at, std::uint64_t end) {
  BlockChain chain{at, {}, at};
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
  }
  return chain;
}

bool BlockSearch::isBelieved(const BlockChain& chain, std::uint64_t searchedFrom,
                             const ByteRange& stretch, StretchEnds ends) {
  const auto passed = static_cast<double>(chain.from - searchedFrom);
  double bits = perBlock * static_cast<double>(chain.sizes.size()) - std::log2(passed + 1);
  bits += ends.soundIsDue && chain.from == stretch.lower ? whereDue : 0;
  bits += ends.endIsKnown && chain.to == stretch.upper ? endsAtEdge : 0;
  return !chain.sizes.empty() && bits >= enough;
}

std::vector<BlockChain> BlockSearch::in(const ByteRange& stretch, StretchEnds ends) {
  std::vector<BlockChain> found;
  const std::uint64_t budget = bitsLooked_ + std::max(bitsAtLeast, stretch.length() * bitsPerByte);
  std::uint64_t searchedFrom = stretch.lower;
  for (std::uint64_t at = stretch.lower; at < stretch.upper && bitsLooked_ < budget;) {
    at = nextStart(at, stretch.upper);
    if (at == stretch.upper) {
      break;
    }
    BlockChain chain = chainAt(at, stretch.upper);
    if (isBelieved(chain, searchedFrom, stretch, ends)) {
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
