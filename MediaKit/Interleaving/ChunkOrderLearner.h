// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "MediaKit/Interleaving/ChunkOrder.h"

namespace tallowmark {

/// Works out a reference's order of chunks, and holds it against each of its gaps.
class ChunkOrderLearner {
 public:
  /// As for ChunkOrder::learn; all must outlive it.
  ChunkOrderLearner(const std::vector<Extent>& extents, const ByteRange& media, const Track& video,
                    const Track& audio, const ByteSource& source);

  /// As for ChunkOrder::learn. Call once.
  std::optional<ChunkOrder> learn();

 private:
  struct Gap {
    std::uint64_t from = 0;
    std::uint64_t to = 0;
    std::vector<const Extent*> extents;
  };
  /// What of a gap is as orders can have it.
  struct Shape {
    ChunkOrder::Surroundings around;
    std::vector<const Extent*> sound;
  };

  bool isPCM(const Extent& extent) const { return sampleSizes_.contains(extent.track); }
  void collectGaps(const std::vector<Extent>& extents, const Track& video);
  void findAlignment();
  bool hasRivals() const;
  std::optional<Shape> shapeOf(const Gap& gap) const;
  void findTracks();
  void findLengths();
  std::optional<std::uint64_t> learnRounds(const Gap& gap);
  void findSoundless();
  void lookAtPadding();
  bool dividesAll();

  const ByteRange media_;
  const Track& audio_;
  const ByteSource& source_;
  std::map<const Track*, std::uint64_t> sampleSizes_;
  std::vector<Gap> gaps_;
  /// Stretches of pictures that begin behind something else.
  std::vector<std::uint64_t> pictures_;
  ChunkOrder order_;
};

}  // namespace tallowmark
