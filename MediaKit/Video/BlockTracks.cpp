// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/BlockTracks.h"

#include <algorithm>
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

void GatheredBlocks::add(std::uint64_t offset, std::uint32_t size, std::uint8_t kind) {
  blocks_.append(
      {.offset = offset, .size = size, .duration = layout_.kinds[kind].ticks, .isSync = true});
  if (layout_.kinds.size() > 1) {
    kinds_.push_back(kind);
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
  }

  void take(const TrackOrder::Told& told);
  FoundBlocks result();

 private:
  using Shares = std::vector<std::vector<Sample>>;

  void align(const TrackOrder::Lead& lead, const Shares& shares, std::uint64_t at);
  void endGaps();

  const GatheredBlocks& gathered_;
  SampleList::Iterator block_;
  FoundBlocks found_;
  std::size_t row_ = 0;
  std::size_t gap_ = 0;
  /// Of the gap that is being gone through.
  std::uint64_t before_ = 0;
  std::uint64_t placedBefore_ = 0;
  std::uint64_t atStart_ = 0;
  bool isFirstRow_ = true;
  bool isUntold_ = false;
};

// What tracks lack beside others ahead of a row that tells by how many blocks each is to be ahead:
// silence will stand there.
void GatheredBlocks::Sharing::align(const TrackOrder::Lead& lead, const Shares& shares,
                                    std::uint64_t at) {
  const BlockLayout& layout = gathered_.layout_;
  const auto apart = [&](std::size_t track) {
    return static_cast<std::int64_t>(found_.tracks[track].size() + shares[track].size()) -
           static_cast<std::int64_t>(lead[track]);
  };
  std::int64_t most = apart(0);
  for (std::size_t track = 1; track < shares.size(); ++track) most = std::max(most, apart(track));
  for (std::size_t track = 0; track < shares.size(); ++track) {
    const std::uint32_t ticks = layout.kinds[layout.tracks[track].kind].ticks;
    for (std::int64_t lacking = most - apart(track); lacking > 0; --lacking) {
      found_.tracks[track].append({.offset = at, .size = 0, .duration = ticks, .isSync = true});
    }
  }
}

void GatheredBlocks::Sharing::take(const TrackOrder::Told& told) {
  endGaps();
  Shares shares(found_.tracks.size());
  bool isAnyTold = false;
  std::uint64_t end = 0;
  for (const std::optional<std::size_t>& track : told.tracks) {
    const Sample block = *block_;
    ++block_;
    end = block.offset + block.size;
    isAnyTold = isAnyTold || track;
    (track ? found_.bytes : found_.unplaced) += block.size;
    if (track) {
      shares[*track].push_back(block);
    }
  }
  if (told.lead && isAnyTold) {
    align(*told.lead, shares, end);
  }
  for (std::size_t track = 0; track < shares.size(); ++track) {
    for (const Sample& block : shares[track]) found_.tracks[track].append(block);
  }
  isUntold_ = isUntold_ || !isAnyTold;
  if (std::exchange(isFirstRow_, false)) {
    atStart_ = found_.longest() - before_;
  }
  ++row_;
}

// Of the gaps whose rows have all been taken.
void GatheredBlocks::Sharing::endGaps() {
  for (; gap_ < gathered_.gaps_.size() && gathered_.gaps_[gap_].rows == row_; ++gap_) {
    const Gap& gap = gathered_.gaps_[gap_].gap;
    const bool isLoss = !gap.isUsual || isUntold_;
    const std::uint64_t behind = found_.longest();
    if (behind > before_ || isLoss) {
      const std::uint64_t atStart = gap.isUsual || gap.leadsFromStart ? atStart_ : 0;
      const std::uint64_t lost =
          isLoss && !gap.isAnothers ? gap.unknown - (found_.bytes - placedBefore_) : 0;
      found_.gaps.push_back({gap.frame, behind, before_ + atStart, isLoss, lost});
    }
    before_ = behind;
    placedBefore_ = found_.bytes;
    atStart_ = 0;
    isFirstRow_ = true;
    isUntold_ = false;
  }
}

FoundBlocks GatheredBlocks::Sharing::result() {
  endGaps();
  return std::move(found_);
}

FoundBlocks GatheredBlocks::share() {
  std::size_t first = 0;
  for (TrackOrder::Row& row : rows_) {
    row.kinds = kinds_.empty() ? row.kinds : std::span(kinds_).subspan(first, row.blocks);
    first += row.blocks;
  }
  TrackOrder order = layout_.order;
  std::size_t rows = 0;
  for (const Ended& ended : gaps_) {
    if (ended.gap.isUsual && ended.rows > rows) {
      order.learnCount(rows_[rows].blocks);
    }
    rows = ended.rows;
  }
  Sharing sharing(*this);
  order.tell(rows_, [&](const TrackOrder::Told& told) { sharing.take(told); });
  return sharing.result();
}

}  // namespace tallowmark
