// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/SampleList.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <map>

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

std::uint64_t SampleList::startOf(std::size_t run) const {
  if (run == places_.size()) {
    return size_;
  }
  std::uint64_t start = starts_[run / stride];
  for (std::size_t i = run / stride * stride; i < run; ++i) start += places_[i].count;
  return start;
}

Sample SampleList::operator[](std::uint64_t index) const {
  const auto block = std::prev(std::upper_bound(starts_.begin(), starts_.end(), index));
  std::uint64_t within = index - *block;
  auto run = static_cast<std::size_t>(block - starts_.begin()) * stride;
  for (; within >= places_[run].count; ++run) within -= places_[run].count;
  Sample sample = firstOf(run);
  sample.offset += within * sample.size;
  return sample;
}

void SampleList::reserveRuns(std::size_t count) {
  places_.reserve(count);
  traitsOf_.reserve(count);
  starts_.reserve(count / stride + 1);
}

std::uint32_t SampleList::indexOf(const Traits& traits) {
  const std::uint32_t mixed =
      (traits.duration * 31U + static_cast<std::uint32_t>(traits.compositionOffset)) * 2U +
      (traits.isSync ? 1U : 0U);
  std::uint32_t& known = lately_[mixed * 2654435761U >> 28U];
  if (known >= traits_.size() || !(traits_[known] == traits)) {
    known = static_cast<std::uint32_t>(traits_.size());
    traits_.push_back(traits);
  }
  return known;
}

void SampleList::addRun(const Sample& first, std::uint32_t count) {
  if (places_.size() % stride == 0) {
    starts_.push_back(size_);
  }
  places_.push_back({first.offset, first.size, count});
  traitsOf_.push_back(indexOf({first.duration, first.compositionOffset, first.isSync}));
  size_ += count;
}

void SampleList::append(const Sample& first, std::uint64_t count) {
  constexpr std::uint64_t largestRun = std::numeric_limits<std::uint32_t>::max();
  Sample next = first;
  if (count > 0 && !places_.empty()) {
    Place& last = places_.back();
    const Sample lastFirst = firstOf(places_.size() - 1);
    if (sameButOffset(lastFirst, first) && SampleRun{lastFirst, last.count}.end() == first.offset) {
      const std::uint64_t more = std::min(count, largestRun - last.count);
      last.count += static_cast<std::uint32_t>(more);
      size_ += more;
      next.offset += more * first.size;
      count -= more;
    }
  }
  while (count > 0) {
    const std::uint64_t more = std::min(count, largestRun);
    addRun(next, static_cast<std::uint32_t>(more));
    next.offset += more * first.size;
    count -= more;
  }
}

void SampleList::append(const SampleList& more) {
  // To reserve what one of many appended lists needs would move all runs for each of them.
  if (more.places_.size() > places_.size()) {
    reserveRuns(places_.size() + more.places_.size());
  }
  for (const SampleRun& run : more.runs()) {
    append(run.first, run.count);
  }
}

void SampleList::removeLast() {
  --size_;
  if (--places_.back().count > 0) {
    return;
  }
  places_.pop_back();
  traitsOf_.pop_back();
  if (places_.size() % stride == 0) {
    starts_.pop_back();
  }
}

std::uint64_t SampleList::duration() const {
  std::uint64_t total = 0;
  for (const SampleRun& run : runs()) {
    total = saturatingAdd(total, run.duration());
  }
  return total;
}

std::uint32_t SampleList::typicalDuration() const {
  // In order: a file can choose durations that all fall into one bucket of a hash table.
  std::map<std::uint32_t, std::uint64_t> counts;
  auto last = counts.end();
  const auto countOf = [&](std::uint32_t duration) -> std::uint64_t& {
    if (last == counts.end() || last->first != duration) {
      last = counts.try_emplace(duration, 0).first;
    }
    return last->second;
  };
  for (const SampleRun& run : runs()) {
    countOf(run.first.duration) += run.count;
  }
  std::uint32_t typical = 1;
  std::uint64_t most = 0;
  for (const SampleRun& run : runs()) {
    if (const std::uint64_t count = countOf(run.first.duration); count > most) {
      most = count;
      typical = run.first.duration;
    }
  }
  return typical;
}

std::uint32_t SampleList::largestSize() const {
  std::uint32_t largest = 0;
  for (const SampleRun& run : runs()) {
    largest = std::max(largest, run.first.size);
  }
  return largest;
}

void SampleList::lengthenLast(std::uint64_t ticks) {
  // What the field of a duration takes in every player.
  constexpr std::uint64_t most = std::numeric_limits<std::int32_t>::max();
  if (empty() || ticks == 0) {
    return;
  }
  Sample last = back();
  removeLast();
  const std::uint64_t longer = std::min(saturatingAdd(last.duration, ticks), most);
  last.duration = std::max(last.duration, static_cast<std::uint32_t>(longer));
  append(last);
}

SampleList SampleList::slice(std::uint64_t from, std::uint64_t to) const {
  SampleList part;
  const std::uint64_t end = std::min(to, size_);
  if (from >= end) {
    return part;
  }
  const auto block = std::prev(std::upper_bound(starts_.begin(), starts_.end(), from));
  const SampleRuns all = runs();
  for (auto place = all.begin() + (block - starts_.begin()) * std::ptrdiff_t{stride};
       place != all.end(); ++place) {
    const SampleRun run = *place;
    if (run.start >= end) {
      break;
    }
    const std::uint64_t first = std::max(from, run.start);
    const std::uint64_t last = std::min(end, run.start + run.count);
    if (first < last) {
      part.append(run.at(first - run.start), last - first);
    }
  }
  return part;
}

SampleList SampleList::endingBy(std::uint64_t limit) const {
  SampleList kept;
  for (const SampleRun& run : runs()) {
    kept.append(run.first, run.countEndingBy(limit));
  }
  return kept;
}

SampleList SampleList::movedBy(std::uint64_t delta) const {
  SampleList moved = *this;
  for (Place& place : moved.places_) {
    place.offset += delta;
  }
  return moved;
}

bool operator==(const SampleList& a, const SampleList& b) {
  const SampleRuns x = a.runs();
  const SampleRuns y = b.runs();
  return std::equal(x.begin(), x.end(), y.begin(), y.end(), [](const auto& p, const auto& q) {
    return p.first == q.first && p.count == q.count;
  });
}

}  // namespace tallowmark
