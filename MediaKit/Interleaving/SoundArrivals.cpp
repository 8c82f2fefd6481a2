// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Interleaving/SoundArrivals.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <span>
#include <utility>

namespace tallowmark {

namespace {

constexpr std::size_t mostTracks = 16;
constexpr std::size_t arrivalsTogether = 32;
constexpr double sameRate = 0.04;
// Gaps that tell whether all have multiples.
constexpr std::size_t fewestGaps = 48;

bool isNear(double value, double wanted, double tolerance) {
  return std::abs(value / wanted - 1) <= tolerance;
}

double ratio(std::uint64_t of, std::uint64_t to) {
  return to == 0 ? 0 : static_cast<double>(of) / static_cast<double>(to);
}

}  // namespace

void SoundArrivals::add(std::uint64_t frame, std::size_t blocks) {
  const bool joins = std::exchange(joins_, true) && !arrivals_.empty();
  const Arrival last = arrivals_.empty() ? Arrival{} : arrivals_.back();
  arrivals_.push_back({frame, last.blocks + blocks, joins});
  // The first gap of a recording is often like no other.
  wholeGaps_ += arrivals_.size() > 1 ? 1U : 0U;
  wholeBlocks_ += arrivals_.size() > 1 ? blocks : 0;
  if (joins) {
    ++gaps_;
    pictures_ += frame - last.frame;
    blocks_ += blocks;
  }
}

double SoundArrivals::blocksPerPicture() const {
  return ratio(blocks_, pictures_);
}

double SoundArrivals::blocksPerGap() const {
  return ratio(wholeBlocks_, wholeGaps_);
}

double SoundArrivals::picturesPerGap() const {
  return ratio(pictures_, gaps_);
}

bool SoundArrivals::areFarApart() const {
  return picturesPerGap() >= 3 && blocksPerGap() >= 2;
}

double SoundArrivals::usualChunk() const {
  std::vector<double> chunks;
  for (std::size_t i = 1; i < arrivals_.size(); ++i) {
    if (arrivals_[i].joins) {
      chunks.push_back(static_cast<double>(arrivals_[i].blocks - arrivals_[i - 1].blocks));
    }
  }
  return tallowmark::usualChunk(std::move(chunks));
}

double SoundArrivals::shareBeside(std::size_t unit) const {
  std::uint64_t others = 0;
  for (std::size_t i = 1; i < arrivals_.size(); ++i) {
    const bool isMultiple = (arrivals_[i].blocks - arrivals_[i - 1].blocks) % unit == 0;
    others += arrivals_[i].joins && !isMultiple ? 1U : 0U;
  }
  return ratio(others, gaps_);
}

std::size_t SoundArrivals::inStep() const {
  // At 24 pictures a second one gap of 21 has one block of 48 kHz, and all others have two.
  constexpr double seldom = 0.02;
  std::size_t unit = mostTracks;
  while (unit > 1 && shareBeside(unit) > seldom) --unit;
  return unit;
}

// How far apart arrivals lie beside a line through two of them.
double SoundArrivals::widthAlong(std::span<const Arrival> arrivals, const Arrival& a,
                                 const Arrival& b) {
  const double slope = ratio(b.blocks - a.blocks, b.frame - a.frame);
  double least = std::numeric_limits<double>::max();
  double most = std::numeric_limits<double>::lowest();
  for (const Arrival& arrival : arrivals) {
    const double beside = static_cast<double>(arrival.blocks - arrivals.front().blocks) -
                          slope * static_cast<double>(arrival.frame - arrivals.front().frame);
    least = std::min(least, beside);
    most = std::max(most, beside);
  }
  return most - least;
}

// The narrowest stripe that holds all of them lies along two.
double SoundArrivals::widthOf(std::span<const Arrival> arrivals) {
  double width = std::numeric_limits<double>::max();
  for (std::size_t i = 0; i < arrivals.size(); ++i) {
    for (std::size_t j = i + 1; j < arrivals.size(); ++j) {
      width = std::min(width, widthAlong(arrivals, arrivals[i], arrivals[j]));
    }
  }
  return width;
}

bool SoundArrivals::areEven(std::size_t unit, Extent extent) const {
  constexpr std::size_t mostWindows = 256;
  // Time stamps are rounded.
  constexpr double slack = 0.05;
  std::size_t even = 0;
  std::size_t windows = 0;
  std::size_t first = 0;
  for (std::size_t i = 0; i < arrivals_.size() && windows < mostWindows; ++i) {
    first = arrivals_[i].joins ? first : i;
    if (i + 1 - first == arrivalsTogether) {
      const double width = widthOf(std::span(arrivals_).subspan(first, arrivalsTogether));
      even += width <= (1 + slack) * static_cast<double>(unit) ? 1U : 0U;
      ++windows;
      first = i + 1;
    }
  }
  const std::size_t least = extent == Extent::throughout ? windows : windows - windows / 5;
  return windows > 0 && even >= least;
}

namespace {

// Chunks of half a second or more: how much sound is in one, and how many pictures lie between.
std::optional<std::size_t> tracksByChunks(const SoundArrivals& clip, const SoundArrivals& reference,
                                          std::size_t referenceTracks) {
  constexpr std::size_t fewest = 3;
  const double tracks =
      clip.blocksPerGap() / reference.blocksPerGap() * static_cast<double>(referenceTracks);
  const double whole = std::round(tracks);
  const bool isTold = std::min(clip.wholeGaps(), reference.wholeGaps()) >= fewest && whole >= 1 &&
                      isNear(clip.picturesPerGap(), reference.picturesPerGap(), 0.1) &&
                      isNear(tracks, whole, 0.06);
  return isTold ? std::optional(static_cast<std::size_t>(whole)) : std::nullopt;
}

// Twice as many blocks as one track's, and not as even as these: tracks that begin apart.
std::optional<std::size_t> tracksApart(double times, const SoundArrivals& reference) {
  const double whole = std::round(times);
  return whole > 1 && isNear(times, whole, sameRate) && reference.areEven(1)
             ? std::optional(static_cast<std::size_t>(whole))
             : std::nullopt;
}

}  // namespace

double usualChunk(std::vector<double> chunks) {
  constexpr double alike = 0.1;
  constexpr std::size_t enough = 4;
  if (chunks.size() < enough) {
    return 0;
  }
  const std::size_t all = chunks.size();
  std::sort(chunks.begin(), chunks.end());
  const double usual = chunks[all / 2];
  std::erase_if(chunks, [&](double chunk) { return std::abs(chunk - usual) > alike * usual; });
  const double mean =
      std::accumulate(chunks.begin(), chunks.end(), 0.0) / static_cast<double>(chunks.size());
  return chunks.size() * 4 >= all * 3 ? mean : 0;
}

bool comeAsOneTrack(const SoundArrivals& clip) {
  return clip.gaps() >= fewestGaps && !clip.areFarApart() && clip.inStep() == 1 &&
         clip.areEven(1, SoundArrivals::Extent::throughout);
}

bool comeAsLearnt(const SoundArrivals& clip, const SoundArrivals& reference,
                  std::size_t referenceTracks) {
  constexpr std::size_t fewest = 3;
  constexpr double often = 0.12;
  if (clip.areFarApart()) {
    return reference.areFarApart() && std::min(clip.wholeGaps(), reference.wholeGaps()) >= fewest &&
           isNear(clip.blocksPerGap(), reference.blocksPerGap(), 0.25);
  }
  return referenceTracks == 1 && clip.gaps() >= fewestGaps && clip.shareBeside(2) >= often &&
         clip.shareBeside(3) >= often;
}

std::optional<bool> areOfOtherTracks(const SoundArrivals& clip, const SoundArrivals& reference) {
  constexpr std::size_t fewest = 3;
  // Nearer to twice as many than to as many.
  constexpr double other = 1.41;
  const auto isOther = [](double times) { return times > other || times * other < 1; };
  if (clip.gaps() < fewest || reference.gaps() == 0) {
    return std::nullopt;
  }
  // Where pictures are dropped chunks stay as they are.
  return clip.areFarApart() && isOther(clip.blocksPerPicture() / reference.blocksPerPicture()) &&
         (!reference.areFarApart() || isOther(clip.blocksPerGap() / reference.blocksPerGap()));
}

std::optional<std::size_t> tracksByArrivals(const SoundArrivals& clip,
                                            const SoundArrivals& reference,
                                            std::size_t referenceTracks) {
  if (clip.gaps() == 0 || reference.gaps() == 0) {
    return std::nullopt;
  }
  if (clip.areFarApart() && reference.areFarApart()) {
    return tracksByChunks(clip, reference, referenceTracks);
  }
  const std::size_t together = clip.inStep();
  if (clip.gaps() < fewestGaps || clip.areFarApart()) {
    return std::nullopt;
  }
  const double times = clip.blocksPerPicture() / reference.blocksPerPicture();
  if (!clip.areEven(together)) {
    return referenceTracks == 1 ? tracksApart(times, reference) : std::nullopt;
  }
  if (isNear(times, 1, sameRate) && together % referenceTracks == 0) {
    return referenceTracks;
  }
  // Two tracks that begin half a block apart come as evenly as one.
  const bool mayBeApart = referenceTracks > 1 && reference.inStep() % referenceTracks != 0 &&
                          (reference.gaps() < arrivalsTogether || reference.areEven(1));
  // One that ends soon leaves the other alone.
  const bool mayHaveEnded = referenceTracks > 1 && !comeAsOneTrack(clip);
  return together == 1 && (mayBeApart || mayHaveEnded) ? std::nullopt : std::optional(together);
}

}  // namespace tallowmark
