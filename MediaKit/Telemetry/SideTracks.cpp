// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Telemetry/SideTracks.h"

#include <algorithm>

#include "MediaKit/Container/BigEndian.h"

namespace tallowmark {

namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::uint64_t samplesOfHabit = 500;
// Cameras have up to six. Each costs a look at its samples, and a comparison with every stretch.
constexpr std::size_t mostTracks = 16;
constexpr std::size_t fewSizes = 8;
// Side tracks store some kilobytes between two pictures.
constexpr std::uint64_t longestStretch = std::uint64_t{1} << 20U;

// Bytes of the item at the start; 0 when there is none.
std::size_t itemSize(Bytes bytes) {
  constexpr std::uint32_t smallestItem = 9;
  constexpr std::uint32_t largestKey = 64;
  if (bytes.size() < smallestItem) {
    return 0;
  }
  const auto size = bigEndian<std::uint32_t>(bytes, 0);
  const auto key = bigEndian<std::uint32_t>(bytes, 4);
  const bool isItem = size >= smallestItem && size <= bytes.size() && key > 0 && key <= largestKey;
  return isItem ? size : 0;
}

bool areItems(Bytes bytes) {
  while (const std::size_t size = itemSize(bytes)) {
    bytes = bytes.subspan(size);
  }
  return bytes.empty();
}

// A zero may be the upper end of a number that grows; the other fixed bytes tell.
bool opensLike(const SideTrackHabit& habit, Bytes bytes) {
  bool isTelling = false;
  for (std::size_t i = 0; i < habit.opening.size(); ++i) {
    if (((habit.fixed >> i) & 1U) == 0 || habit.opening.at(i) == 0) {
      continue;
    }
    if (i >= bytes.size() || bytes[i] != habit.opening.at(i)) {
      return false;
    }
    isTelling = true;
  }
  return isTelling;
}

bool mayGoOn(std::span<const SideTrackHabit> habits, Bytes bytes) {
  return bytes.empty() || std::any_of(habits.begin(), habits.end(), [&](const auto& habit) {
           return habit.hasItems ? itemSize(bytes) > 0 : opensLike(habit, bytes);
         });
}

// Size of the sample of that track at the start of `bytes`, which runs to the stretch's end; 0 when
// there is none.
std::size_t sampleAt(Bytes bytes, const SideTrackHabit& habit,
                     std::span<const SideTrackHabit> habits) {
  if (habit.hasItems) {
    return itemSize(bytes);
  }
  if (!opensLike(habit, bytes)) {
    return 0;
  }
  for (const std::uint32_t size : habit.sizes) {
    if (size > 0 && size <= bytes.size() && mayGoOn(habits, bytes.subspan(size))) {
      return size;
    }
  }
  // Nothing in the sample tells its size: it is all that is there.
  const bool isUsual =
      bytes.size() >= habit.smallest / 2 && bytes.size() <= std::uint64_t{habit.largest} * 2;
  return isUsual ? bytes.size() : 0;
}

SideTrackHabit habitOf(const Track& track, const ByteSource& source) {
  SideTrackHabit habit{.name = track.codec.description(), .fixed = 0xFF, .hasItems = true};
  bool isFirst = true;
  for (const Sample& sample :
       track.samples.slice(0, std::min(track.samples.size(), samplesOfHabit))) {
    const auto bytes =
        source.read(sample.offset,
                    static_cast<std::size_t>(std::min<std::uint64_t>(sample.size, longestStretch)));
    for (std::size_t i = 0; i < habit.opening.size(); ++i) {
      const bool isThere = i < bytes.size();
      habit.opening.at(i) = isFirst && isThere ? bytes[i] : habit.opening.at(i);
      habit.fixed &= isThere && bytes[i] == habit.opening.at(i) ? ~0U : ~(1U << i);
    }
    isFirst = false;
    habit.hasItems = habit.hasItems && areItems(bytes);
    habit.smallest = std::min(habit.smallest, sample.size);
    habit.largest = std::max(habit.largest, sample.size);
    if (habit.sizes.size() <= fewSizes) {
      habit.sizes.insert(sample.size);
    }
  }
  if (habit.sizes.size() > fewSizes) {
    habit.sizes.clear();
  }
  return habit;
}

}  // namespace

std::vector<SideTrackHabit> SideTrackHabit::learn(const Movie& reference,
                                                  const ByteSource& source) {
  std::vector<SideTrackHabit> habits;
  for (const Track& track : reference.tracks) {
    if (habits.size() == mostTracks) {
      break;
    }
    const bool isRebuilt = track.codec == "gpmd" || track.codec == "tmcd";
    if (track.kind == Track::Kind::other && !isRebuilt && track.samples.largestSize() > 0) {
      habits.push_back(habitOf(track, source));
    }
  }
  return habits;
}

std::uint64_t addSideTracksIn(const ByteRange& stretch, MediaWindow& window,
                              std::span<const SideTrackHabit> habits, BytesByTrack& found) {
  if (habits.empty() || stretch.length() > longestStretch) {
    return 0;
  }
  const auto length = static_cast<std::size_t>(stretch.length());
  const Bytes held = window.at(stretch.lower, length);
  Bytes bytes = held.first(std::min(held.size(), length));
  std::uint64_t told = 0;
  while (!bytes.empty()) {
    std::size_t size = 0;
    for (auto habit = habits.begin(); habit != habits.end() && size == 0; ++habit) {
      size = sampleAt(bytes, *habit, habits);
      if (size > 0) {
        found[habit->name] += size;
      }
    }
    if (size == 0) {
      break;
    }
    told += size;
    bytes = bytes.subspan(size);
  }
  return told;
}

}  // namespace tallowmark
