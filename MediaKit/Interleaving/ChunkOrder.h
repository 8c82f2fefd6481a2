// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <tuple>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Interleaving/Interleaving.h"

namespace tallowmark {

/// In which order and at which places a camera stores the chunks of its PCM tracks between two
/// pictures. Learnt where a gap's size alone cannot tell what is whose: other PCM tracks look like
/// the one that is kept, and what pads chunks to sectors can look like silence.
class ChunkOrder {
 public:
  /// What follows a stretch behind a picture.
  enum class Follows { picture, endOfMedia };

  /// Nothing for a reference whose sound needs none of this: one PCM track, chunks where the bytes
  /// before them end. `media` is where the reference's media data lies. Throws DeviceError.
  static std::optional<ChunkOrder> learn(const std::vector<Extent>& extents, const ByteRange& media,
                                         const Track& video, const Track& audio,
                                         const ByteSource& source);

  /// The reference's gaps are of one order, by which each of them is divided rightly or not at all.
  bool isKnown() const { return isKnown_; }

  /// The PCM tracks in the order of their chunks; they point into the reference's movie.
  const std::vector<const Track*>& tracks() const { return tracks_; }
  /// The number in `tracks` of the one by which sound is judged.
  std::size_t kept() const { return kept_; }
  std::uint64_t sampleSize(std::size_t track) const { return sampleSizes_[track]; }

  /// The chunks of each of `tracks` in [from, to); nothing when more than one division, or none, is
  /// as the reference's are. Throws DeviceError.
  std::optional<std::vector<std::vector<ByteRange>>> divide(const ByteSource& source,
                                                            std::uint64_t from, std::uint64_t to,
                                                            Follows follows) const;

  /// Each chunk is as long as all of the reference's: hardly so by chance.
  bool areUsual(const std::vector<std::vector<ByteRange>>& chunks) const;

  /// Where each track's first chunk behind a picture that ends at `from` lies, whatever became of
  /// the bytes behind it; nothing when the reference does not tell, or when another track's comes
  /// before the kept one's. Throws DeviceError.
  std::optional<std::vector<std::vector<ByteRange>>> firstRound(const ByteSource& source,
                                                                std::uint64_t from) const;

 private:
  friend class ChunkOrderLearner;

  /// Stretches of other tracks around the sound of a gap.
  struct Surroundings {
    std::vector<std::uint64_t> before;
    std::vector<std::uint64_t> behind;
    friend bool operator<(const Surroundings& a, const Surroundings& b) {
      return std::tie(a.before, a.behind) < std::tie(b.before, b.behind);
    }
  };
  /// Rounds of one chunk of every track: so many with `full` samples in each, then one with `last`.
  struct Rounds {
    std::uint64_t count = 0;
    std::uint64_t full = 0;
    std::uint64_t last = 0;
    friend bool operator<(const Rounds& a, const Rounds& b) {
      return std::tie(a.count, a.full, a.last) < std::tie(b.count, b.full, b.last);
    }
  };
  using Chunks = std::vector<std::vector<ByteRange>>;
  /// A stretch between two pictures, or behind the last.
  struct Gap {
    std::uint64_t from = 0;
    std::uint64_t to = 0;
    Follows follows = Follows::picture;
    /// Modulo the alignment, where chunks begin.
    std::uint64_t phase = 0;
  };

  std::uint64_t phaseOf(const ByteSource& source, std::uint64_t to, Follows follows) const;
  std::uint64_t aligned(std::uint64_t at, const Gap& gap) const;
  std::uint64_t behindStretches(std::uint64_t at, const Gap& gap,
                                const std::vector<std::uint64_t>& stretches) const;
  std::uint64_t behindRound(std::uint64_t at, const Gap& gap, std::uint64_t samples,
                            Chunks* chunks = nullptr) const;
  Chunks place(const Gap& gap, const Surroundings& around, const Rounds& rounds) const;
  bool hasNoSound(const Gap& gap) const;
  bool leadsToEnd(std::uint64_t end, const Gap& gap) const;
  void addUsual(const Gap& gap, const Surroundings& around, std::set<Rounds>& found) const;
  std::optional<Rounds> anyLength(const Gap& gap, const Surroundings& around) const;
  std::optional<Chunks> untilPadding(const ByteSource& source, const Gap& gap) const;

  bool isKnown_ = false;
  std::vector<const Track*> tracks_;
  std::vector<std::uint64_t> sampleSizes_;
  std::size_t kept_ = 0;
  /// Samples of a chunk, where these are of few kinds; the fewest and the most of any.
  std::set<std::uint64_t> lengths_;
  std::uint64_t shortest_ = 0;
  std::uint64_t longest_ = 0;
  std::uint64_t mostRounds_ = 1;
  std::set<Surroundings> surroundings_;
  /// Sizes of gaps without such sound.
  std::set<std::uint64_t> soundless_;
  /// Chunks begin at multiples of it, counted from the file's start or the media data's.
  std::uint64_t alignment_ = 1;
  bool countsFromMedia_ = false;
  bool picturesAreAligned_ = false;
  bool padsWithZeros_ = false;
  /// What stands behind the last picture is of the same order.
  bool tellsEnd_ = true;
};

}  // namespace tallowmark
