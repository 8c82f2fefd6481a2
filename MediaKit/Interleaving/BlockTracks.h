// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "MediaKit/Container/SampleList.h"
#include "MediaKit/Interleaving/BlockLayout.h"
#include "MediaKit/Interleaving/BlockSearch.h"
#include "MediaKit/Interleaving/TrackOrder.h"
#include "MediaKit/Sound/WindowSteps.h"

namespace tallowmark {

/// Sound between two pictures, or a stretch that nothing explains.
struct SoundGap {
  /// Number of the picture behind it.
  std::uint64_t frame = 0;
  /// Blocks of the longest track up to the gap's end, and up to where in it something is missing.
  std::uint64_t blocksBehind = 0;
  std::uint64_t blocksBeforeLoss = 0;
  bool isLoss = false;
  /// It has blocks of which none could be given to a track.
  bool isUntold = false;
  /// Bytes of a loss that nothing explains.
  std::uint64_t unexplained = 0;
};

/// Bytes that were sound: they lie beside blocks, between pictures that count on.
struct SoundHole {
  /// Number of the picture behind it.
  std::uint64_t frame = 0;
  /// Blocks of the first track ahead of it.
  std::uint64_t blocksBefore = 0;
  std::uint64_t bytes = 0;
};

/// AAC sound found in a damaged file.
struct FoundBlocks {
  /// One list for each of the layout's tracks. Blocks without a size stand where a track lost one
  /// that another track has.
  std::vector<SampleList> tracks;
  std::vector<SoundGap> gaps;
  /// Of a clip with one track, in order.
  std::vector<SoundHole> holes;
  std::uint64_t bytes = 0;
  /// Bytes of blocks whose track cannot be told, or is left out.
  std::uint64_t unplaced = 0;
  /// The blocks themselves tell how many tracks they are of.
  bool isCountTold = false;
  /// They come as the reference's do, or tell how many tracks they are of: more sound than there
  /// should be to the pictures is no other track's.
  bool comeAsLearnt = false;
  /// They stand together in chunks that belong to no picture.
  bool areInChunks = false;

  /// Blocks of the longest track.
  std::uint64_t longest() const;
  bool empty() const { return longest() == 0; }
};

/// The blocks of all tracks as they lie in the file, in rows with no picture in between.
class GatheredBlocks {
 public:
  /// What stands between two pictures.
  struct Gap {
    /// Number of the picture behind it.
    std::uint64_t frame = 0;
    ByteRange range;
    /// Bytes, but for what is known to be no sound.
    std::uint64_t unknown = 0;
    /// The pictures on both sides count on, and nothing in it is known to be no sound.
    bool countsOn = false;
    /// Nothing was lost in it.
    bool isUsual = false;
    /// What nothing explains in it is another track's.
    bool isAnothers = false;
    /// Nothing is lost ahead of its first row.
    bool leadsFromStart = false;
  };

  /// `layout` must outlive it.
  explicit GatheredBlocks(const BlockLayout& layout) : layout_(layout) {}

  void startRow(TrackOrder::Anchor anchor);
  void add(std::uint64_t offset, const BlockChain::Block& block);
  void anchorRow(TrackOrder::Anchor anchor) { rows_.back().anchor = anchor; }
  /// Ends a gap: all rows since the one before are its.
  void endGap(const Gap& gap);
  /// Blocks may be missing between the last row and the next one.
  void noteLoss() { goesOn_ = false; }

  /// Shares the blocks out among the layout's tracks.
  FoundBlocks share();

 private:
  class Sharing;
  struct Ended {
    Gap gap;
    std::size_t rows = 0;
  };
  /// Whose the blocks are, as they tell it beside the reference's.
  struct Owners {
    /// One track's, the reference's tracks', or others'.
    enum class Tracks { one, learnt, others } tracks = Tracks::learnt;
    bool areTold = false;
  };

  using Visit = std::function<void(const TrackOrder::Told&)>;
  void tell(Owners::Tracks tracks, const Visit& visit,
            TrackOrder::Turns turns = TrackOrder::Turns::doubted) const;
  void timeRows();
  SoundArrivals arrivals() const;
  WindowSteps steps(Owners::Tracks tracks) const;
  bool areChunksTooLong() const;
  Owners owners() const;

  const BlockLayout& layout_;
  SampleList blocks_;
  /// Of the blocks, where the layout has more than one.
  std::vector<std::uint8_t> kinds_;
  std::vector<WindowSequence> windows_;
  std::vector<TrackOrder::Row> rows_;
  std::vector<Ended> gaps_;
  bool goesOn_ = true;
};

}  // namespace tallowmark
