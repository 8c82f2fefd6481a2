// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Video/TrackOrder.h"

#include <algorithm>

namespace tallowmark {

namespace {

// Cameras have a handful; chunks of ten seconds have a thousand blocks.
constexpr std::size_t mostOrders = 64;
constexpr std::size_t longestOrder = 1024;

}  // namespace

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
  hasTooMany_ = hasTooMany_ || order.size() > longestOrder || seen_.size() == mostOrders;
  if (hasTooMany_ || !seen_.insert(order).second) {
    return;
  }
  for (const Order& other : seen_) {
    for (std::size_t i = 0; other.size() == order.size() && i < order.size(); ++i) {
      if (order[i] != other[i]) {
        doubtful_.insert({order[i], other[i]});
      }
    }
  }
}

void TrackOrder::learnCount(std::size_t blocks) {
  if (blocks > 0 && blocks % tracks_ == 0) {
    leastShare_ = std::min(leastShare_, blocks / tracks_);
    mostShare_ = std::max(mostShare_, blocks / tracks_);
  }
}

// Whole orders that such a row may be, or be the start or the end of.
std::vector<TrackOrder::Order> TrackOrder::possible(std::size_t blocks, Anchor anchor) const {
  std::vector<Order> orders;
  const bool takeTurns = takeTurnsByGap_ || takeTurnsByBlock_;
  if (takeTurns && anchor == Anchor::both) {
    return blocks % tracks_ == 0 ? ordersOf(blocks / tracks_) : orders;
  }
  if (!takeTurns) {
    std::copy_if(seen_.begin(), seen_.end(), std::back_inserter(orders), [&](const Order& order) {
      return anchor == Anchor::both ? order.size() == blocks : order.size() >= blocks;
    });
    return hasTooMany_ ? std::vector<Order>{} : orders;
  }
  const std::size_t least = (blocks + tracks_ - 1) / tracks_;
  const std::size_t most = std::max(mostShare_, takeTurnsByBlock_ ? least : 0);
  if (most * tracks_ > longestOrder) {
    return orders;
  }
  for (std::size_t share = std::max(least, std::min(leastShare_, most)); share <= most; ++share) {
    for (Order& order : ordersOf(share)) {
      orders.push_back(std::move(order));
    }
  }
  return orders;
}

std::vector<std::optional<std::size_t>> TrackOrder::tell(std::size_t blocks, Anchor anchor) const {
  std::vector<std::optional<std::size_t>> told(blocks);
  if (tracks_ < 2) {
    std::fill(told.begin(), told.end(), 0);
    return told;
  }
  const std::vector<Order> orders =
      anchor == Anchor::neither ? std::vector<Order>{} : possible(blocks, anchor);
  std::set<std::uint8_t> doubtful = doubtful_;
  for (std::size_t i = 0; i < blocks && !orders.empty(); ++i) {
    std::set<std::uint8_t> tracks;
    for (const Order& order : orders) {
      tracks.insert(order[anchor == Anchor::end ? order.size() - blocks + i : i]);
    }
    if (tracks.size() == 1) {
      told[i] = *tracks.begin();
    } else if (anchor == Anchor::both) {
      doubtful.merge(tracks);
    }
  }
  // Of what nothing tore a track has all of its blocks or, lest it should stutter, none.
  for (auto& track : told) {
    track = track && doubtful.contains(static_cast<std::uint8_t>(*track)) ? std::nullopt : track;
  }
  return told;
}

}  // namespace tallowmark
