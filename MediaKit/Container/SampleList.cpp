// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/SampleList.h"

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <unordered_map>

#include "MediaKit/Container/SaturatingMath.h"

namespace tallowmark {

namespace {
bool sameButOffset(const Sample& a, const Sample& b) {
  return a.size == b.size && a.duration == b.duration &&
         a.compositionOffset == b.compositionOffset && a.isSync == b.isSync;
}
}  // namespace

std::uint64_t SampleRun::end() const {
  return saturatingAdd(first.offset, saturatingMultiply(count, first.size));
}

std::uint64_t SampleRun::duration() const {
  return saturatingMultiply(count, first.duration);
}

std::uint64_t SampleRun::countEndingBy(std::uint64_t limit) const {
  if (first.offset > limit) {
    return 0;
  }
  return first.size == 0 ? count : std::min(count, (limit - first.offset) / first.size);
}

SampleList::SampleList(std::initializer_list<Sample> samples) {
  for (const Sample& sample : samples) {
    append(sample);
  }
}

Sample SampleList::operator[](std::uint64_t index) const {
  const auto run = std::prev(
      std::upper_bound(runs_.begin(), runs_.end(), index,
                       [](std::uint64_t wanted, const SampleRun& r) { return wanted < r.start; }));
  return run->at(index - run->start);
}

void SampleList::append(const Sample& first, std::uint64_t count) {
  if (count == 0) {
    return;
  }
  if (!runs_.empty()) {
    SampleRun& last = runs_.back();
    if (sameButOffset(last.first, first) && last.end() == first.offset) {
      last.count += count;
      return;
    }
  }
  runs_.push_back({first, count, size()});
}

void SampleList::append(const SampleList& more) {
  runs_.reserve(runs_.size() + more.runs_.size());
  for (const SampleRun& run : more.runs_) {
    append(run.first, run.count);
  }
}

std::uint64_t SampleList::duration() const {
  std::uint64_t total = 0;
  for (const SampleRun& run : runs_) {
    total = saturatingAdd(total, run.duration());
  }
  return total;
}

std::uint32_t SampleList::typicalDuration() const {
  std::unordered_map<std::uint32_t, std::uint64_t> counts;
  std::uint32_t typical = 1;
  std::uint64_t most = 0;
  for (const SampleRun& run : runs_) {
    counts[run.first.duration] += run.count;
  }
  for (const SampleRun& run : runs_) {
    if (const std::uint64_t count = counts[run.first.duration]; count > most) {
      most = count;
      typical = run.first.duration;
    }
  }
  return typical;
}

std::uint32_t SampleList::largestSize() const {
  std::uint32_t largest = 0;
  for (const SampleRun& run : runs_) {
    largest = std::max(largest, run.first.size);
  }
  return largest;
}

SampleList SampleList::slice(std::uint64_t from, std::uint64_t to) const {
  SampleList part;
  for (const SampleRun& run : runs_) {
    const std::uint64_t first = std::max(from, run.start);
    const std::uint64_t last = std::min(to, run.start + run.count);
    if (first < last) {
      part.append(run.at(first - run.start), last - first);
    }
  }
  return part;
}

SampleList SampleList::endingBy(std::uint64_t limit) const {
  SampleList kept;
  for (const SampleRun& run : runs_) {
    kept.append(run.first, run.countEndingBy(limit));
  }
  return kept;
}

SampleList SampleList::movedBy(std::uint64_t delta) const {
  SampleList moved = *this;
  for (SampleRun& run : moved.runs_) {
    run.first.offset += delta;
  }
  return moved;
}

bool operator==(const SampleList& a, const SampleList& b) {
  return a.size() == b.size() && std::equal(a.runs_.begin(), a.runs_.end(), b.runs_.begin(),
                                            b.runs_.end(), [](const auto& x, const auto& y) {
                                              return x.first == y.first && x.count == y.count;
                                            });
}

}  // namespace tallowmark
