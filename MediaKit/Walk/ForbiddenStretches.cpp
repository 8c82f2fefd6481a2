// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/ForbiddenStretches.h"

#include <algorithm>

#include "MediaKit/Bitstream/EmulationRule.h"

namespace tallowmark {

namespace {
constexpr MediaWindow::ReadAhead stretchReadAhead{std::size_t{16} << 10U, std::size_t{256} << 10U};
constexpr std::uint64_t neighbourhood = 64;
}  // namespace

ForbiddenStretches::ForbiddenStretches(const ByteSource& source, std::uint64_t end)
    : window_(source, end, stretchReadAhead) {}

void ForbiddenStretches::forgetBefore(std::uint64_t offset) {
  while (!clusters_.empty() && clusters_.front().last < offset) {
    clusters_.pop_front();
  }
  if (offset > frontier_) {
    clusters_.clear();
    start_ = offset;
    frontier_ = offset;
  } else {
    start_ = std::max(start_, offset);
  }
}

void ForbiddenStretches::lookUpTo(std::uint64_t to) {
  window_.readAheadUpTo(to);
  while (frontier_ + 3 <= to) {
    const auto bytes = window_.at(frontier_, 3);
    if (bytes.size() < 3) {
      return;
    }
    const auto part = bytes.first(
        static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), to - frontier_)));
    const auto hit = findForbiddenStretch(part);
    if (!hit) {
      frontier_ += part.size() - 2;
      continue;
    }
    const std::uint64_t at = frontier_ + *hit;
    if (!clusters_.empty() && at - clusters_.back().last <= neighbourhood) {
      clusters_.back().last = at;
    } else {
      clusters_.push_back({at, at});
    }
    frontier_ = at + 1;
  }
}

bool ForbiddenStretches::findIn(std::uint64_t from, std::uint64_t to) {
  if (to < from + 3) {
    return false;
  }
  const auto bytes = window_.at(from, static_cast<std::size_t>(to - from));
  return findForbiddenStretch(bytes.first(static_cast<std::size_t>(
                                  std::min<std::uint64_t>(bytes.size(), to - from))))
      .has_value();
}

bool ForbiddenStretches::anyIn(std::uint64_t from, std::uint64_t to) {
  if (from < start_ || (clusters_.empty() && from > frontier_)) {
    clusters_.clear();
    start_ = from;
    frontier_ = from;
  }
  lookUpTo(to);
  auto cluster = std::partition_point(clusters_.begin(), clusters_.end(),
                                      [&](const Cluster& c) { return c.last < from; });
  if (cluster == clusters_.end() || cluster->first + 3 > to) {
    return false;
  }
  if (cluster->first >= from) {
    return true;
  }
  // The question starts inside a cluster: the next forbidden bytes are near.
  return findIn(from, std::min(to, from + neighbourhood + 3));
}

}  // namespace tallowmark
