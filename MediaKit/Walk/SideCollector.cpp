// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/SideCollector.h"

#include <algorithm>
#include <utility>

#include "MediaKit/Interleaving/Stretches.h"

namespace tallowmark {

namespace {

bool isBefore(const ByteRange& a, const ByteRange& b) {
  return a.lower < b.lower;
}

// Records between blocks have a few bytes each.
constexpr MediaWindow::ReadAhead pieceReadAhead{64, std::size_t{4} << 10U};

// Two lists of stretches, each in order, as one.
std::vector<ByteRange> merged(std::span<const ByteRange> a, std::span<const ByteRange> b) {
  std::vector<ByteRange> all(a.size() + b.size());
  std::merge(a.begin(), a.end(), b.begin(), b.end(), all.begin(), isBefore);
  return all;
}

// Whether one of `stretches`, in order and apart, lies over `range`.
bool isCovered(const ByteRange& range, std::span<const ByteRange> stretches) {
  const auto behind =
      std::partition_point(stretches.begin(), stretches.end(),
                           [&](const ByteRange& s) { return s.upper <= range.lower; });
  return behind != stretches.end() && behind->lower < range.upper;
}

}  // namespace

SideLessons SideLessons::learn(const Movie& reference, const ByteSource& source) {
  return {TelemetryHabits::learn(reference, source), TimecodePlace::learn(reference, source),
          SideTrackHabit::learn(reference, source)};
}

SideCollector::SideCollector(const ByteSource& source, const SideLessons& lessons)
    : source_(source),
      lessons_(lessons),
      search_(source),
      window_(source, source.size(), pieceReadAhead) {}

// The stretch up to a picture was gone through to find that one.
std::vector<ByteRange> SideCollector::telemetryIn(const ByteRange& stretch) {
  if (!lessons_.telemetry || stretch == searched_) {
    return met_;
  }
  return search_.in(stretch, stretch.upper);
}

std::optional<std::uint64_t> SideCollector::telemetryOver(std::uint64_t at, std::uint64_t from) {
  if (!lessons_.telemetry) {
    return std::nullopt;
  }
  if (from != searched_.lower) {
    searched_ = {from, from};
    met_.clear();
  }
  if (at > searched_.upper) {
    const auto trees = search_.in({searched_.upper, at}, source_.size());
    met_.insert(met_.end(), trees.begin(), trees.end());
    searched_.upper = met_.empty() ? at : std::max(at, met_.back().upper);
  }
  const bool isOver = !met_.empty() && met_.back().lower <= at && at < met_.back().upper;
  return isOver ? std::optional(met_.back().upper) : std::nullopt;
}

// Trees that stand together make a sample as many as the reference's have.
void SideCollector::append(std::span<const ByteRange> trees, std::uint64_t frame) {
  std::size_t inSample = 0;
  for (const ByteRange& tree : trees) {
    const bool goesOn = inSample > 0 && inSample < lessons_.telemetry->treesPerSample &&
                        found_.telemetry.back().range.upper == tree.lower;
    if (goesOn) {
      found_.telemetry.back().range.upper = tree.upper;
    } else {
      found_.telemetry.push_back({frame, tree});
    }
    inSample = goesOn ? inSample + 1 : 1;
  }
}

SideCollector::Left SideCollector::take(const ByteRange& gap, std::span<const ByteRange> sound,
                                        std::vector<ByteRange> trees, std::uint64_t frame,
                                        bool isIntact) {
  std::erase_if(trees, [&](const ByteRange& tree) { return isCovered(tree, sound); });
  append(trees, frame);
  std::vector<ByteRange> taken = merged(sound, trees);
  if (lessons_.timecode && isIntact && !found_.timecode) {
    found_.timecode = lessons_.timecode->find(source_, gap, taken, frame);
    if (found_.timecode) {
      const ByteRange value{*found_.timecode, *found_.timecode + TimecodePlace::valueSize};
      taken = merged(taken, std::span(&value, 1));
    }
  }
  Left left;
  for (const ByteRange& piece : rest(gap, taken)) {
    left.unused += piece.length();
    left.told += addSideTracksIn(piece, window_, lessons_.others, found_.others);
  }
  return left;
}

}  // namespace tallowmark
