// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/BlockSearch.h"

#include <algorithm>
#include <bitset>
#include <cmath>

namespace tallowmark {

namespace {

constexpr std::size_t readAhead = std::size_t{256} << 10U;

// Bits of evidence. Random bytes walk as a block of a known pattern at about one position in 2^18;
// where a block ends is one of a thousand places.
constexpr double perBlock = 17;
constexpr double perByte = 2;
constexpr double whereDue = 4;
constexpr double endsAtEdge = 10;
constexpr double enough = 14;

// A position costs a few bits of walking where nothing is, a few hundred where sound is; only data
// made for it costs more.
constexpr std::uint64_t bitsPerByte = 64;
constexpr std::uint64_t bitsAtLeast = std::uint64_t{1} << 24U;

bool contains(const std::vector<std::uint64_t>& distances, std::uint64_t distance) {
  return std::find(distances.begin(), distances.end(), distance) != distances.end();
}

// How surprising it is that other data has only what the reference has, of so many values.
double habitBits(std::uint64_t known, unsigned values) {
  const auto count = static_cast<double>(std::bitset<64>(known).count());
  return count == 0 ? 0 : std::max(0.0, std::log2(values / count));
}

}  // namespace

BlockSearch::BlockSearch(const ByteSource& source, const BlockLayout& layout)
    : layout_(layout),
      walk_(layout.habits.config, layout.habits.rules),
      window_(source, source.size(), readAhead) {
  for (unsigned byte = 0; byte < starts_.size(); ++byte) {
    starts_.at(byte) = walk_.mayStartWith(static_cast<std::uint8_t>(byte));
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
    chain.bits += bitsOf(*look.block);
  }
  return chain;
}

double BlockSearch::bitsOf(const RawBlock& block) const {
  constexpr double strange = -4;
  constexpr unsigned longValues = 50;
  constexpr unsigned shortValues = 15;
  // A block of silence is so short that counters and flags of other data can read as one.
  const double most = perByte * block.size;
  const SoundHabits& habits = layout_.habits;
  if ((block.longBands & ~habits.longBands) != 0 || (block.shortBands & ~habits.shortBands) != 0) {
    return std::min(most, perBlock + strange);
  }
  return std::min(most,
                  perBlock + (block.longBands != 0 ? habitBits(habits.longBands, longValues)
                                                   : habitBits(habits.shortBands, shortValues)));
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

std::vector<BlockChain> BlockSearch::in(const ByteRange& stretch, StretchEnd end) {
  std::vector<BlockChain> found;
  const std::uint64_t budget = bitsLooked_ + std::max(bitsAtLeast, stretch.length() * bitsPerByte);
  std::uint64_t searchedFrom = stretch.lower;
  for (std::uint64_t at = stretch.lower; at < stretch.upper && bitsLooked_ < budget;) {
    at = nextStart(at, stretch.upper);
    if (at == stretch.upper) {
      break;
    }
    BlockChain chain = chainAt(at, stretch.upper);
    if (isBelieved(chain, searchedFrom, stretch, end)) {
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
