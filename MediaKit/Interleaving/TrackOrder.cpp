// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/TrackOrder.h"

#include <algorithm>
#include <utility>

namespace tallowmark {

namespace {

// Cameras have a handful of orders, of a few blocks; chunks of ten seconds have a thousand.
constexpr std::size_t mostOrdersLearnt = 256;
constexpr std::size_t mostBlocksLearnt = std::size_t{16} << 10U;
constexpr std::size_t longestOrder = 1024;
// A second of sound, and what a gap holds.
constexpr std::size_t mostDelay = 50;
// Ways in which a recording may have ended that are looked at.
constexpr std::size_t mostEndings = 64;

}  // namespace

TrackOrder::TrackOrder(std::vector<std::uint8_t> kinds, std::size_t mostBlocks)
    : tracks_(kinds.size()),
      kinds_(std::move(kinds)),
      mostLead_(static_cast<std::uint16_t>(mostDelay + std::min(mostBlocks, longestOrder))),
      reference_(tracks_, 0) {}

// The orders that turn taking makes of so many blocks of each track.
std::vector<TrackOrder::Order> TrackOrder::ordersOf(std::size_t share) const {
  Order byGap;
  Order byBlock;
  for (std::size_t i = 0; i < share * tracks_; ++i) {
    byGap.push_back(static_cast<std::uint8_t>(i / share));
    byBlock.push_back(static_cast<std::uint8_t>(i % tracks_));
  }
  std::vector<Order> orders;
  if (takeTurnsByGap_) {
    orders.push_back(std::move(byGap));
  }
  if (takeTurnsByBlock_) {
    orders.push_back(std::move(byBlock));
  }
  return orders;
}

TrackOrder::Lead TrackOrder::behind(Lead lead, const Order& order) const {
  for (const std::uint8_t track : order) {
    lead[track] = std::min<std::uint16_t>(lead[track] + 1U, mostLead_);
    if (const auto least = *std::min_element(lead.begin(), lead.end()); least > 0) {
      for (std::uint16_t& ahead : lead) ahead = static_cast<std::uint16_t>(ahead - least);
    }
  }
  return lead;
}

// Not where a track has ended: the others are further ahead than is counted.
bool TrackOrder::isExact(const Lead& lead) const {
  return std::all_of(lead.begin(), lead.end(),
                     [this](std::uint16_t ahead) { return ahead < mostLead_; });
}

std::size_t TrackOrder::mostOfOneIn(const Order& order) const {
  std::vector<std::size_t> counts(tracks_);
  for (const std::uint8_t track : order) ++counts[track];
  return *std::max_element(counts.begin(), counts.end());
}

void TrackOrder::learnNext(const Order& order) {
  Lead lead = reference_;
  for (const std::uint8_t track : order) {
    const auto [next, isNew] = next_.try_emplace(lead, track);
    if (!isNew && next->second != track) {
      next->second = std::nullopt;
    }
    lead = behind(std::move(lead), {track});
  }
}

void TrackOrder::learnLesson(const Order& order) {
  learnNext(order);
  Lesson& lesson = lessons_[reference_];
  reference_ = behind(std::move(reference_), order);
  rhythm_.learn(order.size(), reference_);
  if (++lesson[order] == 1) {
    blocksLearnt_ += order.size();
    ++ordersLearnt_;
  }
}

void TrackOrder::learn(const Order& order) {
  if (order.empty() || tracks_ < 2) {
    return;
  }
  const std::size_t share = order.size() / tracks_;
  const bool isShared = share * tracks_ == order.size();
  for (std::size_t i = 0; i < order.size(); ++i) {
    takeTurnsByGap_ = takeTurnsByGap_ && isShared && order[i] == i / share;
    takeTurnsByBlock_ = takeTurnsByBlock_ && isShared && order[i] == i % tracks_;
  }
  learnCount(order.size());
  leastLearnt_ = leastShare_;
  mostOfOne_ = std::max(mostOfOne_, mostOfOneIn(order));
  firstBlocks_ = firstBlocks_ == 0 ? order.size() : firstBlocks_;
  hasTooMany_ = hasTooMany_ || order.size() > longestOrder ||
                blocksLearnt_ + order.size() > mostBlocksLearnt ||
                ordersLearnt_ == mostOrdersLearnt;
  if (!hasTooMany_) {
    learnLesson(order);
  }
}

void TrackOrder::learnCount(std::size_t blocks) {
  if (blocks > 0 && blocks % tracks_ == 0) {
    leastShare_ = std::min(leastShare_, blocks / tracks_);
    mostShare_ = std::max(mostShare_, blocks / tracks_);
  }
}

void TrackOrder::learnEnd(const Order& order) {
  if (tracks_ > 1 && order.size() > mostShare_ * tracks_) {
    const auto first = static_cast<std::size_t>(
        std::find_if(order.begin(), order.end(), [&](auto track) { return track != order[0]; }) -
        order.begin());
    endsInOneRound_ = first * tracks_ == order.size();
    endsInRounds_ = !endsInOneRound_;
  }
}

std::set<TrackOrder::Lead> TrackOrder::allLeads() const {
  std::set<Lead> leads;
  for (const auto& [lead, lesson] : lessons_) leads.insert(lead);
  return leads;
}

// Where tracks take turns, none is ahead behind a whole order.
std::vector<TrackOrder::Possible> TrackOrder::turns(const Row& row) const {
  std::vector<Possible> found;
  const std::size_t least = (row.blocks + tracks_ - 1) / tracks_;
  std::size_t from = std::max(least, std::min(leastShare_, mostShare_));
  std::size_t to = std::max(mostShare_, takeTurnsByBlock_ ? least : 0);
  if (row.anchor == Anchor::both) {
    from = least;
    to = row.blocks % tracks_ == 0 ? least : 0;
  } else if (to * tracks_ > longestOrder) {
    return found;
  }
  const Lead none(tracks_, 0);
  for (std::size_t share = from; share <= to; ++share) {
    for (Order& order : ordersOf(share)) found.push_back({std::move(order), none, none});
  }
  return found;
}

// Rounds of the usual lengths: the last one is shorter, or cut.
void TrackOrder::addRounds(const Order& before, std::size_t blocks,
                           std::vector<Order>& orders) const {
  const auto add = [&](std::size_t share, std::size_t count) {
    Order order = before;
    for (std::size_t i = 0; i < count; ++i) order.push_back(static_cast<std::uint8_t>(i / share));
    return order;
  };
  if (blocks % tracks_ == 0 && blocks <= mostShare_ * tracks_) {
    orders.push_back(blocks == 0 ? before : add(blocks / tracks_, blocks));
  }
  for (std::size_t share = leastShare_; share <= mostShare_ && orders.size() <= mostEndings;
       ++share) {
    if (blocks < share * tracks_) {
      orders.push_back(add(share, blocks));
    } else if (blocks > 0) {
      addRounds(add(share, share * tracks_), blocks - share * tracks_, orders);
    }
  }
}

// Behind the last picture stands what the recording had left: a round, or several as if there were
// pictures between them.
std::vector<TrackOrder::Possible> TrackOrder::lastTurns(const Row& row) const {
  std::vector<Order> orders;
  if (takeTurnsByGap_ && row.blocks <= longestOrder && mostShare_ > 0) {
    if (row.blocks % tracks_ == 0 && row.blocks > mostShare_ * tracks_ && !endsInRounds_) {
      orders = ordersOf(row.blocks / tracks_);
    }
    if (row.blocks <= mostShare_ * tracks_ || !endsInOneRound_) {
      addRounds({}, row.blocks, orders);
    }
  }
  if (takeTurnsByBlock_) {
    Order order;
    order.reserve(row.blocks);
    for (std::size_t i = 0; i < row.blocks; ++i) {
      order.push_back(static_cast<std::uint8_t>(i % tracks_));
    }
    orders.push_back(std::move(order));
  }
  const Lead none(tracks_, 0);
  std::vector<Possible> found;
  found.reserve(orders.size());
  for (Order& order : orders) found.push_back({std::move(order), none, none});
  return orders.size() > mostEndings ? std::vector<Possible>{} : found;
}

// An order that the reference does not have, where the next block's track is always certain.
std::optional<TrackOrder::Possible> TrackOrder::byLead(const Row& row, const Lead& lead) const {
  Possible found{{}, lead, lead};
  while (found.order.size() < row.blocks) {
    auto track = onlyTrackOf(row, found.order.size());
    if (const auto next = next_.find(found.behind); !track && next != next_.end()) {
      track = next->second;
    }
    if (!track) {
      return std::nullopt;
    }
    found.order.push_back(*track);
    found.behind = behind(std::move(found.behind), {*track});
  }
  return found;
}

// The track of a block that no other has blocks of that kind.
std::optional<std::uint8_t> TrackOrder::onlyTrackOf(const Row& row, std::size_t block) const {
  if (row.kinds.empty() || std::count(kinds_.begin(), kinds_.end(), row.kinds[block]) != 1) {
    return std::nullopt;
  }
  const auto track = std::find(kinds_.begin(), kinds_.end(), row.kinds[block]);
  return static_cast<std::uint8_t>(track - kinds_.begin());
}

bool TrackOrder::tellsItself(const Row& row) const {
  for (std::size_t i = 0; i < row.blocks; ++i) {
    if (!onlyTrackOf(row, i)) {
      return false;
    }
  }
  return row.blocks > 0;
}

std::vector<std::uint8_t> TrackOrder::kindsOf(const Order& order) const {
  std::vector<std::uint8_t> kinds;
  kinds.reserve(order.size());
  for (const std::uint8_t track : order) kinds.push_back(kinds_[track]);
  return kinds;
}

// The part of an order that a row is.
bool TrackOrder::isOfKinds(const Row& row, const Order& order) const {
  if (row.kinds.empty()) {
    return true;
  }
  const std::vector<std::uint8_t> kinds = kindsOf(order);
  const std::size_t first = row.anchor == Anchor::end ? order.size() - row.blocks : 0;
  return std::equal(row.kinds.begin(), row.kinds.end(),
                    kinds.begin() + static_cast<std::ptrdiff_t>(first));
}

// Where a recording ends, tracks stop together: what the others were ahead by stands last.
void TrackOrder::addEndings(std::vector<Possible>& orders, std::size_t blocks) const {
  const std::size_t known = orders.size();
  for (std::size_t i = 0; i < known; ++i) {
    Order order(orders[i].order.begin(),
                orders[i].order.begin() + static_cast<std::ptrdiff_t>(blocks));
    const Lead lead = behind(orders[i].ahead, order);
    const std::size_t most = *std::max_element(lead.begin(), lead.end());
    for (std::size_t track = 0; track < tracks_ && most < mostLead_; ++track) {
      const std::size_t last =
          std::min(blocks, most - lead[track] + (most > lead[track] ? 1U : 0U));
      Possible ending = orders[i];
      ending.order = order;
      std::fill(ending.order.end() - static_cast<std::ptrdiff_t>(last), ending.order.end(),
                static_cast<std::uint8_t>(track));
      orders.push_back(std::move(ending));
    }
  }
}

std::vector<TrackOrder::Possible> TrackOrder::learnt(const Row& row,
                                                     const std::set<Lead>& leads) const {
  std::vector<Possible> found;
  for (const Lead& lead : leads) {
    const auto lesson = lessons_.find(lead);
    if (lesson == lessons_.end()) {
      continue;
    }
    for (const auto& [order, gaps] : lesson->second) {
      if (row.anchor == Anchor::both ? order.size() == row.blocks : order.size() >= row.blocks) {
        found.push_back({order, lead, behind(lead, order)});
      }
    }
  }
  return found;
}

std::vector<TrackOrder::Possible> TrackOrder::possible(const Row& row, const std::set<Lead>& leads,
                                                       bool isLast) const {
  if (row.anchor == Anchor::neither || (hasTooMany_ && !takesTurns())) {
    return {};
  }
  const bool isLastTurn = isLast && takesTurns() && row.anchor == Anchor::both;
  std::vector<Possible> orders = isLastTurn     ? lastTurns(row)
                                 : takesTurns() ? turns(row)
                                                : learnt(row, leads);
  std::erase_if(orders, [&](const Possible& order) { return !isOfKinds(row, order.order); });
  return orders;
}

}  // namespace tallowmark
