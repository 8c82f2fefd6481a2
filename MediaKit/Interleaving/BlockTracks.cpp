// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/BlockTracks.h"

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

namespace tallowmark {

std::uint64_t FoundBlocks::longest() const {
  std::uint64_t most = 0;
  for (const SampleList& blocks : tracks) most = std::max(most, blocks.size());
  return most;
}

void GatheredBlocks::startRow(TrackOrder::Anchor anchor) {
  rows_.push_back({0, anchor, std::exchange(goesOn_, true), {}});
}

void GatheredBlocks::add(std::uint64_t offset, const BlockChain::Block& block) {
  blocks_.append({.offset = offset,
                  .size = block.size,
                  .duration = layout_.kinds[block.kind].ticks,
                  .isSync = true});
  windows_.push_back(block.windows);
  if (layout_.kinds.size() > 1) {
    kinds_.push_back(block.kind);
  }
  ++rows_.back().blocks;
}

void GatheredBlocks::endGap(const Gap& gap) {
  gaps_.push_back({gap, rows_.size()});
}

/// Gives row after row to the tracks.
class GatheredBlocks::Sharing {
 public:
  explicit Sharing(const GatheredBlocks& gathered)
      : gathered_(gathered), block_(gathered.blocks_.begin()) {
    found_.tracks.resize(gathered.layout_.tracks.size());
    shares_.resize(found_.tracks.size());
  }

  void take(const TrackOrder::Told& told);
  FoundBlocks result();

 private:
  using Shares = std::vector<std::vector<Sample>>;

  void align(const TrackOrder::Lead& lead, std::uint64_t at);
  void noteHole(const Gap& gap, std::uint64_t to, std::span<const std::uint64_t> usual);
  void endGaps();

  const GatheredBlocks& gathered_;
  SampleList::Iterator block_;
  FoundBlocks found_;
  /// Of the row that is being taken.
  Shares shares_;
  std::size_t row_ = 0;
  std::size_t gap_ = 0;
  /// Of the gap that is being gone through.
  std::uint64_t before_ = 0;
  std::uint64_t placedBefore_ = 0;
  std::uint64_t atStart_ = 0;
  bool isFirstRow_ = true;
  bool isUntold_ = false;
  /// Where its last row ends.
  std::optional<std::uint64_t> rowEnd_;
};

// What tracks lack beside others ahead of a row that tells by how many blocks each is to be ahead:
// silence will stand there.
void GatheredBlocks::Sharing::align(const TrackOrder::Lead& lead, std::uint64_t at) {
  const BlockLayout& layout = gathered_.layout_;
  const auto apart = [&](std::size_t track) {
    return static_cast<std::int64_t>(found_.tracks[track].size() + shares_[track].size()) -
           static_cast<std::int64_t>(lead[track]);
  };
  std::int64_t most = apart(0);
  for (std::size_t track = 1; track < shares_.size(); ++track) most = std::max(most, apart(track));
  for (std::size_t track = 0; track < shares_.size(); ++track) {
    const std::uint32_t ticks = layout.kinds[layout.tracks[track].kind].ticks;
    for (std::int64_t lacking = most - apart(track); lacking > 0; --lacking) {
      found_.tracks[track].append({.offset = at, .size = 0, .duration = ticks, .isSync = true});
    }
  }
}

// What is missing of sound between the last row, or the gap's start, and `to`. `usual`: how many
// bytes may be there where nothing is.
void GatheredBlocks::Sharing::noteHole(const Gap& gap, std::uint64_t to,
                                       std::span<const std::uint64_t> usual) {
  const std::uint64_t bytes = to - rowEnd_.value_or(gap.range.lower);
  const std::uint64_t none = usual.empty() ? 0 : *std::min_element(usual.begin(), usual.end());
  const bool isUsual = std::find(usual.begin(), usual.end(), bytes) != usual.end();
  if (gap.countsOn && !gap.isUsual && found_.tracks.size() == 1 && !isUsual && bytes > none) {
    found_.holes.push_back({gap.frame, found_.tracks.front().size(), bytes - none});
  }
}

void GatheredBlocks::Sharing::take(const TrackOrder::Told& told) {
  endGaps();
  if (!told.tracks.empty()) {
    noteHole(gathered_.gaps_[gap_].gap, (*block_).offset, gathered_.layout_.dueBehind);
  }
  for (auto& share : shares_) share.clear();
  bool isAnyTold = false;
  std::uint64_t end = 0;
  for (const std::optional<std::size_t>& track : told.tracks) {
    const Sample block = *block_;
    ++block_;
    end = block.offset + block.size;
    isAnyTold = isAnyTold || track;
    (track ? found_.bytes : found_.unplaced) += block.size;
    if (track) {
      shares_[*track].push_back(block);
    }
  }
  if (told.lead && isAnyTold) {
    align(*told.lead, end);
  }
  for (std::size_t track = 0; track < shares_.size(); ++track) {
    for (const Sample& block : shares_[track]) found_.tracks[track].append(block);
  }
  isUntold_ = isUntold_ || !isAnyTold;
  if (end > 0) rowEnd_ = end;
  if (std::exchange(isFirstRow_, false)) {
    atStart_ = found_.longest() - before_;
  }
  ++row_;
}

// Of the gaps whose rows have all been taken.
void GatheredBlocks::Sharing::endGaps() {
  for (; gap_ < gathered_.gaps_.size() && gathered_.gaps_[gap_].rows == row_; ++gap_) {
    const Gap& gap = gathered_.gaps_[gap_].gap;
    noteHole(gap, gap.range.upper, gathered_.layout_.edgeAhead);
    const bool isLoss = !gap.isUsual || isUntold_;
    const std::uint64_t behind = found_.longest();
    if (behind > before_ || isLoss) {
      const std::uint64_t atStart = gap.isUsual || gap.leadsFromStart ? atStart_ : 0;
      const std::uint64_t lost =
          isLoss && !gap.isAnothers ? gap.unknown - (found_.bytes - placedBefore_) : 0;
      found_.gaps.push_back({gap.frame, behind, before_ + atStart, isLoss, isUntold_, lost});
    }
    before_ = behind;
    placedBefore_ = found_.bytes;
    atStart_ = 0;
    isFirstRow_ = true;
    isUntold_ = false;
    rowEnd_.reset();
  }
}

FoundBlocks GatheredBlocks::Sharing::result() {
  endGaps();
  return std::move(found_);
}

// Gaps of which nothing is missing.
SoundArrivals GatheredBlocks::arrivals() const {
  SoundArrivals arrivals;
  std::size_t row = 0;
  for (const Ended& ended : gaps_) {
    const std::size_t rows = ended.rows - row;
    const bool isWhole = ended.gap.isUsual && rows <= 1;
    if (!isWhole || (rows == 1 && !rows_[row].goesOn)) {
      arrivals.forget();
    }
    if (isWhole && rows == 1) {
      arrivals.add(ended.gap.frame, rows_[row].blocks);
    }
    row = ended.rows;
  }
  return arrivals;
}

void GatheredBlocks::tell(Owners::Tracks tracks, const Visit& visit,
                          TrackOrder::Turns turns) const {
  if (tracks == Owners::Tracks::learnt) {
    TrackOrder order = layout_.order;
    std::size_t rows = 0;
    for (const Ended& ended : gaps_) {
      if (ended.gap.isUsual && ended.rows > rows && &ended != &gaps_.back()) {
        order.learnCount(rows_[rows].blocks);
      }
      rows = ended.rows;
    }
    order.tell(rows_, visit, turns);
    return;
  }
  const auto first = tracks == Owners::Tracks::one ? std::optional<std::size_t>(0) : std::nullopt;
  for (const TrackOrder::Row& row : rows_) {
    visit({std::vector<std::optional<std::size_t>>(row.blocks, first), std::nullopt});
  }
}

// The steps in all tracks, if the blocks are shared out in that way.
WindowSteps GatheredBlocks::steps(Owners::Tracks tracks) const {
  std::vector<WindowSteps> steps(layout_.tracks.size());
  std::size_t row = 0;
  std::size_t block = 0;
  const auto add = [&](const TrackOrder::Told& told) {
    if (!rows_[row++].goesOn) {
      for (WindowSteps& each : steps) each.forget();
    }
    for (const std::optional<std::size_t>& track : told.tracks) {
      if (track) {
        steps[*track].add(windows_[block]);
      } else {
        for (WindowSteps& each : steps) each.forget();
      }
      ++block;
    }
  };
  tell(tracks, add, TrackOrder::Turns::trusted);
  WindowSteps all;
  for (const WindowSteps& each : steps) all.add(each);
  return all;
}

// Whether chunks are longer than the reference's, and what was found of them too much for so many
// pictures: damage takes from both. The first and the last chunk are as the recording began and
// ended.
bool GatheredBlocks::areChunksTooLong() const {
  constexpr double tooMuch = 1.41;
  constexpr double longer = 1.25;
  constexpr std::uint64_t farApart = 3;
  const SoundArrivals& usual = layout_.arrivals;
  if (rows_.size() < 3 || gaps_.size() < 3 || usual.gaps() == 0) {
    return false;
  }
  std::size_t longest = 0;
  std::size_t within = 0;
  for (std::size_t row = gaps_.front().rows; row + 1 < rows_.size(); ++row) {
    longest = std::max(longest, rows_[row].blocks);
    within += rows_[row].blocks;
  }
  std::uint64_t withSound = 0;
  for (std::size_t gap = 1; gap + 1 < gaps_.size(); ++gap) {
    withSound += gaps_[gap].rows > gaps_[gap - 1].rows ? 1U : 0U;
  }
  const std::uint64_t pictures = gaps_.back().gap.frame;
  const std::uint64_t picturesWithin = pictures - gaps_.front().gap.frame;
  const auto isTooMuch = [&](std::uint64_t blocks, std::uint64_t frames) {
    return static_cast<double>(blocks) >
           tooMuch * usual.blocksPerPicture() * static_cast<double>(frames);
  };
  const std::uint64_t all = blocks_.size() - std::min(layout_.mostBlocks, blocks_.size());
  const bool areLonger =
      !usual.areFarApart() || static_cast<double>(longest) > longer * usual.blocksPerGap();
  return picturesWithin >= farApart * withSound && areLonger &&
         (isTooMuch(within, picturesWithin) || isTooMuch(all, pictures));
}

GatheredBlocks::Owners GatheredBlocks::owners() const {
  using Tracks = Owners::Tracks;
  if (layout_.kinds.size() > 1) {
    return {};
  }
  const bool windowsTell = layout_.kinds.front().windowsFit;
  const std::size_t learnt = layout_.tracks.size();
  const SoundArrivals arrivals = this->arrivals();
  const auto count = tracksByArrivals(arrivals, layout_.arrivals, learnt);
  const WindowSteps asOne = steps(Tracks::one);
  const bool canBeOne = !windowsTell || !asOne.areImpossible();
  if (count == 1 && canBeOne) {
    return {Tracks::one, true};
  }
  const WindowSteps asLearnt = learnt > 1 ? steps(Tracks::learnt) : asOne;
  const bool seemsOne = asLearnt.areImpossible() || comeAsOneTrack(arrivals);
  if (windowsTell && learnt > 1 && asOne.areCertain() && seemsOne) {
    return {Tracks::one, true};
  }
  const bool areOthers = areOfOtherTracks(arrivals, layout_.arrivals).value_or(areChunksTooLong());
  const bool canBeLearnt = (!windowsTell || !asLearnt.areImpossible()) && (count || !areOthers);
  if (count.value_or(learnt) != learnt || !canBeLearnt) {
    return {Tracks::others, true};
  }
  return {Tracks::learnt, count.has_value()};
}

// Which pictures rows stand behind, as far as these count on.
void GatheredBlocks::timeRows() {
  std::size_t row = 0;
  for (const Ended& ended : gaps_) {
    const bool isLast = &ended == &gaps_.back();
    for (; row < ended.rows; ++row) {
      rows_[row].frame =
          ended.gap.isUsual && !isLast ? std::optional(ended.gap.frame) : std::nullopt;
    }
  }
}

FoundBlocks GatheredBlocks::share() {
  timeRows();
  std::size_t first = 0;
  for (TrackOrder::Row& row : rows_) {
    row.kinds = kinds_.empty() ? row.kinds : std::span(kinds_).subspan(first, row.blocks);
    first += row.blocks;
  }
  const Owners owners = this->owners();
  Sharing sharing(*this);
  tell(owners.tracks, [&](const TrackOrder::Told& told) { sharing.take(told); });
  FoundBlocks found = sharing.result();
  found.isCountTold = owners.areTold;
  const SoundArrivals arrivals = this->arrivals();
  found.areInChunks = arrivals.areFarApart();
  found.comeAsLearnt =
      owners.areTold || tallowmark::comeAsLearnt(arrivals, layout_.arrivals, layout_.tracks.size());
  return found;
}

}  // namespace tallowmark
