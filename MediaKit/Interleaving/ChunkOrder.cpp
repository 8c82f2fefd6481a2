// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/ChunkOrder.h"

#include <algorithm>
#include <utility>

#include "MediaKit/Container/MovieParser.h"

namespace tallowmark {

// Another clip's media may begin elsewhere; its pictures tell, as far as they are aligned, too.
std::uint64_t ChunkOrder::phaseOf(const ByteSource& source, std::uint64_t to,
                                  Follows follows) const {
  if (alignment_ == 1 || !countsFromMedia_) {
    return 0;
  }
  if (follows == Follows::picture && picturesAreAligned_) {
    return to % alignment_;
  }
  const auto layout = MovieParser::layoutIfAny(BoxReader(source));
  return layout && !layout->mdats.empty() ? layout->mdats.front().payloadOffset() % alignment_ : 0;
}

std::uint64_t ChunkOrder::aligned(std::uint64_t at, const Gap& gap) const {
  const std::uint64_t over = (at - gap.phase) % alignment_;
  return over == 0 ? at : at + alignment_ - over;
}

std::uint64_t ChunkOrder::behindStretches(std::uint64_t at, const Gap& gap,
                                          const std::vector<std::uint64_t>& stretches) const {
  for (const std::uint64_t bytes : stretches) {
    at = aligned(at, gap) + bytes;
  }
  return at;
}

std::uint64_t ChunkOrder::behindRound(std::uint64_t at, const Gap& gap, std::uint64_t samples,
                                      Chunks* chunks) const {
  for (std::size_t track = 0; track < tracks_.size(); ++track) {
    const std::uint64_t from = aligned(at, gap);
    at = from + samples * sampleSizes_[track];
    if (chunks != nullptr) (*chunks)[track].push_back({from, at});
  }
  return at;
}

ChunkOrder::Chunks ChunkOrder::place(const Gap& gap, const Surroundings& around,
                                     const Rounds& rounds) const {
  Chunks chunks(tracks_.size());
  std::uint64_t at = behindStretches(gap.from, gap, around.before);
  for (std::uint64_t round = 0; round < rounds.count; ++round) {
    at = behindRound(at, gap, rounds.full, &chunks);
  }
  if (rounds.last > 0) behindRound(at, gap, rounds.last, &chunks);
  return chunks;
}

bool ChunkOrder::hasNoSound(const Gap& gap) const {
  return soundless_.contains(gap.to - gap.from) ||
         (alignment_ > 1 && aligned(gap.from, gap) == gap.to);
}

bool ChunkOrder::leadsToEnd(std::uint64_t end, const Gap& gap) const {
  const bool isPadded = gap.follows == Follows::endOfMedia || picturesAreAligned_;
  const bool isEnd = gap.follows == Follows::endOfMedia || !picturesAreAligned_;
  return (isEnd && end == gap.to) || (isPadded && aligned(end, gap) == gap.to);
}

void ChunkOrder::addUsual(const Gap& gap, const Surroundings& around,
                          std::set<Rounds>& found) const {
  for (const std::uint64_t samples : lengths_) {
    std::uint64_t at = behindStretches(gap.from, gap, around.before);
    for (std::uint64_t count = 1; count <= mostRounds_ && at < gap.to; ++count) {
      at = behindRound(at, gap, samples);
      if (leadsToEnd(behindStretches(at, gap, around.behind), gap)) {
        found.insert({count, samples, 0});
      }
    }
  }
}

// Where the last chunk ends is known to the byte, its length tells itself. Where tracks take turns
// only the last round of all has another one.
std::optional<ChunkOrder::Rounds> ChunkOrder::anyLength(const Gap& gap,
                                                        const Surroundings& around) const {
  const bool isLast = gap.follows == Follows::endOfMedia;
  const bool endIsKnown = isLast || alignment_ == 1 || !picturesAreAligned_;
  if (!endIsKnown || (mostRounds_ > 1 && !isLast)) {
    return std::nullopt;
  }
  const auto endBehind = [&](std::uint64_t at, std::uint64_t samples) {
    return behindStretches(behindRound(at, gap, samples), gap, around.behind);
  };
  Rounds rounds;
  std::uint64_t at = behindStretches(gap.from, gap, around.before);
  if (mostRounds_ > 1) {
    for (rounds.full = *lengths_.begin(); endBehind(at, rounds.full) <= gap.to; ++rounds.count) {
      at = behindRound(at, gap, rounds.full);
    }
  }
  // Where all are about as long, twice the length is rather two of them.
  const std::uint64_t reach = lengths_.empty() ? 2 : 8;
  std::uint64_t least = isLast ? 1 : std::max<std::uint64_t>(1, shortest_ - shortest_ / reach);
  std::uint64_t most =
      isLast ? (gap.to - gap.from) / sampleSizes_.front() + 1 : longest_ + longest_ / reach;
  while (least < most) {
    const std::uint64_t middle = least + (most - least) / 2;
    if (endBehind(at, middle) < gap.to) {
      least = middle + 1;
    } else {
      most = middle;
    }
  }
  rounds.last = least;
  return endBehind(at, least) == gap.to ? std::optional(rounds) : std::nullopt;
}

// The one chunk of a gap, of no usual length: up to the zeros that pad it.
std::optional<ChunkOrder::Chunks> ChunkOrder::untilPadding(const ByteSource& source,
                                                           const Gap& gap) const {
  if (!padsWithZeros_ || tracks_.size() > 1 || mostRounds_ > 1 || surroundings_.size() != 1 ||
      !surroundings_.begin()->behind.empty()) {
    return std::nullopt;
  }
  const std::uint64_t from =
      aligned(behindStretches(gap.from, gap, surroundings_.begin()->before), gap);
  if (from >= gap.to) {
    return std::nullopt;
  }
  const std::uint64_t tailFrom = gap.to - std::min(gap.to - from, alignment_);
  const auto tail = source.read(tailFrom, static_cast<std::size_t>(gap.to - tailFrom));
  const auto last =
      std::find_if(tail.rbegin(), tail.rend(), [](std::uint8_t byte) { return byte != 0; });
  const std::uint64_t bytes = tailFrom + static_cast<std::uint64_t>(tail.rend() - last) - from;
  const std::uint64_t samples = (bytes + sampleSizes_.front() - 1) / sampleSizes_.front();
  const std::uint64_t end = from + samples * sampleSizes_.front();
  // Without an end to it, silence and padding are the same.
  if (last == tail.rend() || aligned(end, gap) != gap.to || samples > longest_ + longest_ / 2) {
    return std::nullopt;
  }
  return Chunks{{{from, end}}};
}

std::optional<std::vector<std::vector<ByteRange>>> ChunkOrder::divide(const ByteSource& source,
                                                                      std::uint64_t from,
                                                                      std::uint64_t to,
                                                                      Follows follows) const {
  const Gap gap{from, to, follows, phaseOf(source, to, follows)};
  if (hasNoSound(gap)) {
    return Chunks(tracks_.size());
  }
  if (follows == Follows::endOfMedia && !tellsEnd_) {
    return std::nullopt;
  }
  std::vector<Chunks> found;
  for (const Surroundings& around : surroundings_) {
    std::set<Rounds> rounds;
    addUsual(gap, around, rounds);
    if (const auto any = anyLength(gap, around); any && rounds.empty()) rounds.insert(*any);
    for (const Rounds& one : rounds) {
      Chunks chunks = place(gap, around, one);
      if (found.empty() || found.front() != chunks) found.push_back(std::move(chunks));
    }
  }
  if (found.size() == 1) {
    return found.front();
  }
  return follows == Follows::picture && picturesAreAligned_ ? untilPadding(source, gap)
                                                            : std::nullopt;
}

bool ChunkOrder::areUsual(const std::vector<std::vector<ByteRange>>& chunks) const {
  const auto& kept = chunks[kept_];
  return lengths_.size() == 1 && std::all_of(kept.begin(), kept.end(), [&](const ByteRange& chunk) {
           return chunk.length() == *lengths_.begin() * sampleSizes_[kept_];
         });
}

std::optional<std::vector<std::vector<ByteRange>>> ChunkOrder::firstRound(
    const ByteSource& source, std::uint64_t from) const {
  if (!isKnown_ || kept_ != 0 || lengths_.size() != 1 || surroundings_.size() != 1) {
    return std::nullopt;
  }
  const Gap gap{from, from, Follows::endOfMedia, phaseOf(source, from, Follows::endOfMedia)};
  return place(gap, *surroundings_.begin(), {1, *lengths_.begin(), 0});
}

}  // namespace tallowmark
