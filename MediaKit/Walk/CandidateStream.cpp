// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/CandidateStream.h"

#include <algorithm>

namespace tallowmark {

namespace {
/// A file full of candidates is not a clip; looking further ahead than this would only take memory.
constexpr std::size_t mostCandidates = 100'000;
}  // namespace

void CandidateStream::forgetBefore(std::uint64_t offset) {
  while (!found_.empty() && found_.front().offset < offset) {
    found_.pop_front();
  }
  frontier_ = std::max(frontier_, offset);
}

void CandidateStream::goBackTo(std::uint64_t offset) {
  found_.clear();
  frontier_ = offset;
}

const FoundFrame* CandidateStream::next(std::uint64_t from, std::uint64_t to) {
  const auto known = std::partition_point(found_.begin(), found_.end(),
                                          [&](const FoundFrame& f) { return f.offset < from; });
  if (known != found_.end()) {
    return known->offset < to ? &*known : nullptr;
  }
  while (frontier_ < to && found_.size() < mostCandidates) {
    // Nothing is skipped between the frontier and `from`: a later question may ask for it.
    const auto candidate = finder_.search(frontier_, to);
    if (!candidate) {
      frontier_ = to;
      return nullptr;
    }
    found_.push_back(*candidate);
    frontier_ = candidate->offset + 1;
    if (candidate->offset >= from) {
      return &found_.back();
    }
  }
  return nullptr;
}

}  // namespace tallowmark
