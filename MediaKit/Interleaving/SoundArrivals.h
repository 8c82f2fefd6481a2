// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace tallowmark {

/// How blocks of sound arrive between a clip's pictures. Those of one track come at equal times;
/// those of several that begin together come in multiples.
class SoundArrivals {
 public:
  /// The next gap with sound: how many pictures are ahead of it, and blocks in it.
  void add(std::uint64_t frame, std::size_t blocks);
  /// Something is missing ahead of the next gap.
  void forget() { joins_ = false; }

  /// Gaps whose neighbour before is known, and means over them.
  std::size_t gaps() const { return gaps_; }
  double blocksPerPicture() const;
  double picturesPerGap() const;
  /// Sound comes in chunks that belong to no picture.
  bool areFarApart() const;
  /// Blocks of a chunk where nearly all but the first are alike; else 0.
  double usualChunk() const;
  /// All gaps but the first.
  std::size_t wholeGaps() const { return wholeGaps_; }
  double blocksPerGap() const;

  /// The largest number up to sixteen of which nearly every gap has a multiple.
  std::size_t inStep() const;
  /// The share of gaps that do not have a multiple of `unit` blocks.
  double shareBeside(std::size_t unit) const;
  /// Whether steps of `unit` blocks come as evenly as whole pictures let them: nearly everywhere,
  /// or all the way.
  enum class Extent { mostly, throughout };
  bool areEven(std::size_t unit, Extent extent = Extent::mostly) const;

 private:
  struct Arrival {
    std::uint64_t frame = 0;
    /// Up to the gap's end.
    std::uint64_t blocks = 0;
    bool joins = false;
  };

  static double widthAlong(std::span<const Arrival> arrivals, const Arrival& a, const Arrival& b);
  static double widthOf(std::span<const Arrival> arrivals);

  std::vector<Arrival> arrivals_;
  std::size_t gaps_ = 0;
  std::size_t wholeGaps_ = 0;
  std::uint64_t wholeBlocks_ = 0;
  std::uint64_t pictures_ = 0;
  std::uint64_t blocks_ = 0;
  bool joins_ = false;
};

/// The mean of chunks of so many blocks where nearly all are alike; 0 where they differ, or are too
/// few to tell.
double usualChunk(std::vector<double> chunks);

/// Whether blocks come as those of one track; or of several that begin as far apart as can be.
bool comeAsOneTrack(const SoundArrivals& clip);

/// Whether blocks come as those of a reference with so many tracks, no matter how many pictures lie
/// between: chunks as large as its, or for a single track gaps of which one in eight or more has no
/// multiple of two blocks, and as many none of three.
bool comeAsLearnt(const SoundArrivals& clip, const SoundArrivals& reference,
                  std::size_t referenceTracks);

/// Whether a clip's chunks hold so much more or so much less sound than the reference's tracks have
/// in that time that it must be of another number of tracks. Nothing where too few are whole.
std::optional<bool> areOfOtherTracks(const SoundArrivals& clip, const SoundArrivals& reference);

/// How many sound tracks of one kind a clip has, as their blocks' arrivals tell it beside those of
/// a reference with so many; nothing where they do not.
std::optional<std::size_t> tracksByArrivals(const SoundArrivals& clip,
                                            const SoundArrivals& reference,
                                            std::size_t referenceTracks);

}  // namespace tallowmark
