// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/BrokenTurns.h"

#include <algorithm>

namespace tallowmark {

namespace {

using Row = TrackOrder::Row;

// As many blocks in a gap are a chunk, whose length says by itself how many tracks it is of.
constexpr std::size_t blocksInChunk = 16;

class TurnCheck {
 public:
  TurnCheck(std::span<const Row> rows, const TurnTaking& taking)
      : rows_(rows), taking_(taking), out_(rows.size()), usual_(usualBlocks()) {}

  std::vector<bool> outOfTurn() {
    const bool isInChunks = usual_ >= blocksInChunk;
    if (!isInChunks || !taking_.isByGap) {
      leaveBrokenRuns(isInChunks ? 4 : 48);
    }
    if (isInChunks) {
      leaveShortChunks();
    }
    leaveTorn();
    return std::move(out_);
  }

 private:
  // What stands behind the last picture ends as the recording did.
  bool isWhole(std::size_t row) const {
    return rows_[row].anchor == TrackOrder::Anchor::both && row + 1 < rows_.size();
  }
  bool isOdd(std::size_t row) const {
    return isWhole(row) && rows_[row].goesOn && rows_[row + 1].goesOn &&
           rows_[row].blocks % taking_.tracks != 0;
  }
  // Too many for one track less.
  bool isFull(std::size_t row) const {
    return isWhole(row) &&
           rows_[row].blocks * taking_.tracks * 2 > usual_ * (taking_.tracks * 2 - 1);
  }
  std::size_t usualBlocks() const;
  void leaveBrokenRuns(std::size_t longEnough);
  void leaveRun(std::size_t from, std::size_t to, std::size_t longEnough);
  void leaveShortChunks();
  void leaveTorn();

  std::span<const Row> rows_;
  const TurnTaking& taking_;
  std::vector<bool> out_;
  /// Of gaps in which all tracks have as many as they come to.
  std::size_t usual_;
};

// One gap in twenty has as many or more, which one that is like no other has not.
std::size_t TurnCheck::usualBlocks() const {
  std::vector<std::size_t> blocks;
  for (std::size_t row = 0; row < rows_.size(); ++row) {
    if (isWhole(row)) blocks.push_back(rows_[row].blocks);
  }
  if (blocks.empty()) {
    return 0;
  }
  const auto usual = blocks.begin() + static_cast<std::ptrdiff_t>((blocks.size() - 1) * 19 / 20);
  std::nth_element(blocks.begin(), usual, blocks.end());
  return *usual;
}

// Rows between two that cannot be shared out are trusted where there are so many that tracks apart
// would have shown it. Where one track has ended every other row could be shared out by chance.
void TurnCheck::leaveBrokenRuns(std::size_t longEnough) {
  std::size_t from = 0;
  for (std::size_t row = 0; row < rows_.size(); ++row) {
    if (isOdd(row)) {
      leaveRun(from, row, longEnough);
      out_[row] = true;
      from = row + 1;
    }
  }
  if (from > 0) {
    leaveRun(from, rows_.size(), longEnough);
  }
}

void TurnCheck::leaveRun(std::size_t from, std::size_t to, std::size_t longEnough) {
  std::size_t whole = 0;
  for (std::size_t row = from; row < to; ++row) whole += isWhole(row) ? 1U : 0U;
  if (whole < longEnough) {
    std::fill(out_.begin() + static_cast<std::ptrdiff_t>(from),
              out_.begin() + static_cast<std::ptrdiff_t>(to), true);
    return;
  }
  for (std::size_t row = from; from > 0 && row < to && !isFull(row); ++row) out_[row] = true;
  for (std::size_t row = to; to < rows_.size() && row > from && !isFull(row - 1); --row) {
    out_[row - 1] = true;
  }
}

void TurnCheck::leaveShortChunks() {
  for (std::size_t row = 0; row < rows_.size(); ++row) {
    const bool isShort = rows_[row].blocks < taking_.leastShare * taking_.tracks;
    out_[row] = out_[row] || (isWhole(row) && isShort && !isFull(row));
  }
}

// Rows that damage tore tell nothing by themselves.
void TurnCheck::leaveTorn() {
  bool isOut = false;
  for (std::size_t row = 0; row < rows_.size(); ++row) {
    isOut = isWhole(row) ? out_[row] : isOut;
    out_[row] = out_[row] || isOut;
  }
  isOut = false;
  for (std::size_t row = rows_.size(); row-- > 0;) {
    isOut = isWhole(row) ? out_[row] : isOut;
    out_[row] = out_[row] || isOut;
  }
}

}  // namespace

std::vector<bool> rowsOutOfTurn(std::span<const Row> rows, const TurnTaking& taking) {
  return TurnCheck(rows, taking).outOfTurn();
}

}  // namespace tallowmark
