// SPDX-License-Identifier: GPL-3.0-or-later
#include <algorithm>
#include <deque>
#include <utility>

#include "MediaKit/Interleaving/BrokenTurns.h"
#include "MediaKit/Interleaving/TrackOrder.h"
#include "MediaKit/Interleaving/TrackTimes.h"

namespace tallowmark {

/// Goes through a clip's rows.
class TrackOrder::Telling {
 public:
  Telling(const TrackOrder& order, const std::function<void(const Told&)>& visit)
      : order_(order), visit_(visit), all_(order.allLeads()), leads_{Lead(order.tracks_, 0)} {}

  /// Of a row that is not `inTurn` its place tells nothing.
  void take(const Row& row, bool isLast, bool inTurn);
  void finish(std::size_t left = 0);

 private:
  // Gaps that show how far tracks are apart, and that they keep to it.
  static constexpr std::size_t enoughTimes = 16;

  Told told(const Candidates& candidates) const;
  std::set<std::uint8_t> doubtful(const std::set<Lead>& leads) const;
  std::vector<Possible> possible(const Row& row, bool isLast) const;
  void lose();
  void keepToRhythm(Candidates& candidates);
  void keepToTime(Candidates& candidates);
  TrackTimes timesBehind(const Possible& order, std::uint64_t frame) const;
  void learnTimes(Candidates& candidates, std::uint64_t frame);
  void keepApart(Candidates& candidates, std::uint64_t frame);
  void leaveLast();
  bool isSettled() const;

  const TrackOrder& order_;
  const std::function<void(const Told&)>& visit_;
  const std::set<Lead> all_;
  /// What the tracks may be ahead by.
  std::set<Lead> leads_;
  /// Rows since these were not known, nothing missing in between.
  std::deque<Candidates> stretch_;
  /// Of these, how many need nothing behind them to be told.
  std::size_t settled_ = 0;
  /// Their orders.
  std::size_t held_ = 0;
  /// Blocks of the last gaps, nothing missing in between.
  std::vector<std::size_t> gaps_;
  bool keepsRhythm_ = true;
  bool isFirst_ = true;
  /// Of the rows since something was missing, for each of the leads that the tracks may have now.
  std::map<Lead, TrackTimes> times_;
  /// How far the tracks are apart, where many rows showed it and none did not.
  std::optional<TrackTimes> apart_;
  bool keepsTime_ = true;
  /// They kept time up to that many gaps, and do not just behind these.
  bool mayFallBehind_ = false;
  std::size_t lastInTime_ = 0;
  /// Nothing has been missing since it was known what the tracks are ahead by.
  bool isKnown_ = true;
};

// Tracks whose places in a gap its blocks' number and kinds do not tell, where it is known what
// each is ahead by.
std::set<std::uint8_t> TrackOrder::Telling::doubtful(const std::set<Lead>& leads) const {
  // A track that ends makes one gap like no other.
  constexpr std::uint64_t often = 50;
  std::set<std::uint8_t> doubtful;
  const auto lesson =
      leads.size() == 1 ? order_.lessons_.find(*leads.begin()) : order_.lessons_.end();
  if (lesson == order_.lessons_.end()) {
    return doubtful;
  }
  std::uint64_t all = 0;
  for (const auto& [order, gaps] : lesson->second) all += gaps;
  std::map<std::vector<std::uint8_t>, const Order*> usual;
  for (const auto& [order, gaps] : lesson->second) {
    if (gaps * often < all) {
      continue;
    }
    const Order& other = *usual.try_emplace(order_.kindsOf(order), &order).first->second;
    for (std::size_t i = 0; i < order.size(); ++i) {
      if (order[i] != other[i]) {
        doubtful.insert({order[i], other[i]});
      }
    }
  }
  return doubtful;
}

TrackOrder::Told TrackOrder::Telling::told(const Candidates& candidates) const {
  const auto& [row, orders] = candidates;
  Told told{std::vector<std::optional<std::size_t>>(row.blocks), std::nullopt};
  std::set<Lead> ahead;
  std::set<Lead> behind;
  for (const Possible& order : orders) {
    ahead.insert(order.ahead);
    behind.insert(order.behind);
  }
  std::set<std::uint8_t> doubtful = this->doubtful(ahead);
  for (std::size_t i = 0; i < row.blocks && !orders.empty(); ++i) {
    std::set<std::uint8_t> tracks;
    for (const Possible& possible : orders) {
      const Order& order = possible.order;
      tracks.insert(order[row.anchor == Anchor::end ? order.size() - row.blocks + i : i]);
    }
    if (tracks.size() == 1) {
      told.tracks[i] = *tracks.begin();
    } else if (row.anchor == Anchor::both) {
      doubtful.merge(tracks);
    }
  }
  // Of what nothing tore a track has all of its blocks or, lest it should stutter, none.
  for (std::size_t i = 0; i < row.blocks; ++i) {
    std::optional<std::size_t>& track = told.tracks[i];
    if (const auto only = order_.onlyTrackOf(row, i)) {
      track = only;
    } else if (track && doubtful.contains(static_cast<std::uint8_t>(*track))) {
      track = std::nullopt;
    }
  }
  if (row.anchor != Anchor::start && behind.size() == 1 && order_.isExact(*behind.begin())) {
    told.lead = *behind.begin();
  }
  return told;
}

// What a row may be is what leads to what the next may be. The last few that are left may turn out
// to be out of time.
void TrackOrder::Telling::finish(std::size_t left) {
  for (std::size_t i = stretch_.size(); i-- > settled_ + 1;) {
    std::set<Lead> leads;
    for (const Possible& order : stretch_[i].orders) leads.insert(order.ahead);
    std::erase_if(stretch_[i - 1].orders,
                  [&](const Possible& order) { return !leads.contains(order.behind); });
  }
  while (stretch_.size() > left) {
    visit_(told(stretch_.front()));
    stretch_.pop_front();
  }
  held_ = 0;
  for (const Candidates& candidates : stretch_) held_ += candidates.orders.size();
  settled_ = stretch_.size();
}

void TrackOrder::Telling::lose() {
  if (mayFallBehind_ && !times_.empty() && times_.begin()->second.lag() > 1) {
    leaveLast();
  }
  finish();
  times_.clear();
  leads_ = all_;
  isKnown_ = false;
  mayFallBehind_ = false;
  gaps_.clear();
}

// Where nobody knew what tracks are ahead by, many gaps must keep time.
bool TrackOrder::Telling::isSettled() const {
  return leads_.size() == 1 &&
         (isKnown_ || !apart_ || times_.empty() || times_.begin()->second.gaps() >= enoughTimes);
}

// Where more than one is possible, those that the reference's rhythm has; all in a clip that was
// seen to have another.
void TrackOrder::Telling::keepToRhythm(Candidates& candidates) {
  if (candidates.row.anchor != Anchor::both) {
    gaps_.clear();
    return;
  }
  if (gaps_.size() == GapRhythm::longest) {
    gaps_.erase(gaps_.begin());
  }
  gaps_.push_back(candidates.row.blocks);
  const auto isOff = [&](const Possible& order) {
    return !order_.rhythm_.has(gaps_, order.behind);
  };
  const bool isAnyOn = !std::all_of(candidates.orders.begin(), candidates.orders.end(), isOff);
  if (leads_.size() == 1) {
    keepsRhythm_ = keepsRhythm_ && (isAnyOn || (apart_ && !isKnown_));
  } else if (keepsRhythm_ && isAnyOn) {
    std::erase_if(candidates.orders, isOff);
  }
}

TrackTimes TrackOrder::Telling::timesBehind(const Possible& order, std::uint64_t frame) const {
  const auto known = times_.find(order.ahead);
  TrackTimes next =
      known != times_.end() ? known->second : TrackTimes(order_.picture_, order.ahead);
  next.add(order.order, frame);
  return next;
}

// Blocks of all tracks last equally long, and so do pictures of a constant rate.
void TrackOrder::Telling::keepToTime(Candidates& candidates) {
  const auto& frame = candidates.row.frame;
  if (order_.picture_ <= 0 || !frame) {
    times_.clear();
  } else if (isKnown_) {
    learnTimes(candidates, *frame);
  } else if (apart_) {
    keepApart(candidates, *frame);
  }
}

// Where it is known whose blocks are whose, they show how far apart the tracks are. But one may
// have ended, and the other's blocks be taken for both's: they fall behind then.
void TrackOrder::Telling::learnTimes(Candidates& candidates, std::uint64_t frame) {
  constexpr double tooLate = 8;
  constexpr std::size_t soon = 32;
  if (candidates.orders.size() != 1) {
    times_.clear();
    return;
  }
  const Possible& order = candidates.orders.front();
  const TrackTimes next = timesBehind(order, frame);
  const double before = times_.empty() ? 0 : times_.begin()->second.lag();
  if (!next.areImpossible()) {
    if (keepsTime_ && next.gaps() >= enoughTimes) apart_ = next;
  } else if (std::exchange(keepsTime_, false)) {
    mayFallBehind_ = std::exchange(apart_, std::nullopt).has_value();
    lastInTime_ = next.gaps();
  }
  // All at once they do where pictures are not this clip's, slowly where these have another rate.
  const bool isSteady = next.lag() - before <= 2 + 2 * order_.picture_;
  mayFallBehind_ = mayFallBehind_ && isSteady && next.gaps() <= lastInTime_ + soon;
  if (mayFallBehind_ && next.lag() > tooLate) {
    leaveLast();
    candidates.orders.clear();
  } else {
    times_ = {{order.behind, next}};
  }
}

void TrackOrder::Telling::leaveLast() {
  for (Candidates& candidates : stretch_) candidates.orders.clear();
}

// Of what is possible there remains what lets the tracks be as far apart as they were.
void TrackOrder::Telling::keepApart(Candidates& candidates, std::uint64_t frame) {
  std::map<Lead, TrackTimes> times;
  std::erase_if(candidates.orders, [&](const Possible& order) {
    const TrackTimes next = timesBehind(order, frame);
    if (next.areImpossible() || !next.areAsFarApartAs(*apart_)) {
      return true;
    }
    const auto [place, isNew] = times.try_emplace(order.behind, next);
    if (!isNew) place->second.widenTo(next);
    return false;
  });
  times_ = std::move(times);
  isKnown_ = times_.size() == 1 && times_.begin()->second.gaps() >= enoughTimes;
}

std::vector<TrackOrder::Possible> TrackOrder::Telling::possible(const Row& row, bool isLast) const {
  std::vector<Possible> orders = order_.possible(row, leads_, isLast);
  if (order_.takesTurns() || order_.hasTooMany_) {
    return orders;
  }
  if (row.anchor != Anchor::both && row.anchor != Anchor::start) {
    return isLast ? std::vector<Possible>{} : orders;
  }
  // That the reference lacks a number of blocks behind a lead does not mean that there is none.
  // A row for each lead costs its length; no camera's are as long.
  constexpr std::size_t longestOfMany = 1024;
  if (leads_.size() > 1 && row.blocks > longestOfMany) {
    return {};
  }
  // What blocks tell of themselves would speak for every lead.
  if (!orders.empty() && order_.tellsItself(row)) {
    return orders;
  }
  std::set<Lead> rest = leads_;
  for (const Possible& order : orders) rest.erase(order.ahead);
  for (const Lead& lead : rest) {
    auto order = order_.byLead(row, lead);
    if (!order) {
      return {};
    }
    if (leads_.size() == 1 || isLast || !order_.isTooMuchOfOne(order->order)) {
      orders.push_back(std::move(*order));
    }
  }
  if (isLast) {
    order_.addEndings(orders, row.blocks);
    std::erase_if(orders,
                  [&](const Possible& order) { return !order_.isOfKinds(row, order.order); });
  }
  return orders;
}

void TrackOrder::Telling::take(const Row& row, bool isLast, bool inTurn) {
  // Tracks that are not told apart by then never will be.
  constexpr std::size_t longestStretch = 16 << 10U;
  const bool isOtherStart = isFirst_ && row.blocks != order_.firstBlocks_ && !order_.takesTurns();
  isFirst_ = false;
  if (!row.goesOn || isOtherStart) {
    lose();
  }
  Candidates candidates{row, inTurn ? possible(row, isLast) : std::vector<Possible>{}};
  if (candidates.orders.empty() && leads_.size() == 1) {
    finish();  // that it tells nothing does not speak against what came before
  }
  if (!order_.takesTurns()) {
    keepToRhythm(candidates);
    keepToTime(candidates);
  } else if (isLast && row.anchor == Anchor::both) {
    candidates.row.anchor = Anchor::start;  // it may have been cut
  }
  leads_.clear();
  for (const Possible& order : candidates.orders) leads_.insert(order.behind);
  const bool isLost = candidates.orders.empty() || row.anchor == Anchor::start;
  held_ += candidates.orders.size();
  stretch_.push_back(std::move(candidates));
  if (isLost || held_ > longestStretch) {
    lose();
  } else if (isSettled()) {
    constexpr std::size_t lastFew = 16;
    finish(isKnown_ ? lastFew : 0);
  }
}

void TrackOrder::tell(std::span<const Row> rows, const std::function<void(const Told&)>& visit,
                      Turns turns) const {
  if (tracks_ < 2) {
    for (const Row& row : rows) {
      visit({std::vector<std::optional<std::size_t>>(row.blocks, 0), Lead{0}});
    }
    return;
  }
  Telling telling(*this, visit);
  std::vector<bool> outOfTurn(rows.size());
  if (turns == Turns::doubted && takesTurns() && !rows.empty() && rows.front().kinds.empty()) {
    outOfTurn = rowsOutOfTurn(rows, {tracks_, leastLearnt_, !takeTurnsByBlock_});
  }
  for (std::size_t row = 0; row < rows.size(); ++row) {
    telling.take(rows[row], row + 1 == rows.size(), !outOfTurn[row]);
  }
  telling.finish();
}

}  // namespace tallowmark
