// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "MediaKit/Interleaving/BlockLayout.h"
#include "MediaKit/Timing/PicturePacing.h"
#include "MediaKit/Walk/EvidenceWalk.h"

namespace tallowmark::VideoRepair {

/// Silent blocks ahead of a block of the found ones.
struct Filling {
  std::uint64_t before = 0;
  std::uint64_t blocks = 0;
};

/// Bytes that a second of picture and of sound takes in the file.
struct ByteRates {
  double picture = 1;
  double sound = 1;
};

/// Works out, loss by loss, which of sound and picture lost how much more than the other.
class BlockPacer {
 public:
  /// `found` and `layout` must outlive it. `block`: seconds of one.
  BlockPacer(const EvidencedFindings& found, const BlockLayout& layout,
             std::uint32_t videoTimescale, double block, ByteRates rates);

  void pace();

  /// Seconds of the sound that is left and put in ahead of pictures beside which nothing is lost.
  std::vector<SoundAnchor> anchors() const;
  /// Blocks that go because their pictures do.
  std::uint64_t dropped() const { return dropped_; }
  /// Seconds of sound that are lost behind the key frame.
  double lost() const { return lost_; }
  const std::vector<Filling>& fillings() const { return fillings_; }
  /// Seconds that pictures are held, by their numbers.
  const std::vector<std::pair<std::uint64_t, double>>& holds() const { return holds_; }

 private:
  double leadBehind(const SoundGap& gap) const {
    return static_cast<double>(gap.blocksBehind) * block_ - starts_[gap.frame] - moreAhead(gap);
  }
  /// What is more than usual in sound ahead of the first picture.
  double moreAhead(const SoundGap& gap) const { return gap.frame == 0 ? moreAtFirst_ : 0; }
  double heldFor(const SoundGap& gap, const SoundGap& whole) const;
  std::size_t nextWhole(std::size_t gap) const;
  bool endsWhole(const SoundGap& gap) const;
  bool isUntelling(const SoundGap& gap) const {
    return gap.isLoss && !(found_.areMissingTold && endsWhole(gap));
  }
  std::size_t nextTelling(std::size_t gap) const;
  double leadFrom(std::size_t gap) const;
  std::size_t lastLongStretch() const;
  std::optional<double> surplusByEnd(std::size_t gap) const;
  double usualLead(const std::deque<double>& recent) const;
  std::vector<Filling> silenceIn(std::size_t from, std::size_t to) const;
  double fillHoles(std::size_t from, std::size_t to);
  std::optional<double> lostOfChunks(std::size_t from, std::size_t telling, double about) const;
  void dropFromStart(std::uint64_t blocks);
  void fillWhatIsLost();
  void fillAsHeld(std::size_t from);
  double unexplained(std::size_t from, std::size_t to) const;
  double lostSound(std::size_t from, std::size_t to, double surplus) const;
  void alignStart();
  void correct(const SoundGap& gap, double surplus);
  double lostOfChunk(std::size_t gap) const;
  void fallSilent(std::size_t from, std::size_t telling, double seconds);
  void paceEnd(std::size_t from);

  const EvidencedFindings& found_;
  const std::vector<SoundGap>& gaps_;
  /// Behind the last picture.
  SoundGap end_;
  const SoundLead& lead_;
  double moreAtFirst_;
  double tolerance_;
  /// Sound comes in chunks that belong to no picture.
  bool isFarApart_;
  double endLead_;
  double frame_;
  /// Seconds of pictures that usually come between two chunks.
  double betweenChunks_;
  /// Blocks of a chunk, where nearly all are alike; else 0.
  double chunk_ = 0;
  /// The last gap behind which pictures go on, with nothing lost among them, for longer than it
  /// takes the next chunk to come, numbered from one; 0 without any.
  std::size_t lastLong_ = 0;
  std::vector<double> starts_;
  double block_;
  ByteRates rates_;
  std::uint64_t key_;
  /// Seconds that sound gained on the picture in the losses gone through.
  double gained_ = 0;
  std::uint64_t dropped_ = 0;
  double lost_ = 0;
  static constexpr std::size_t leadsEnough = 4;
  /// How far sound and picture of a camera may end apart, in seconds.
  static constexpr double endsApart = 0.1;
  std::vector<Filling> fillings_;
  std::vector<std::pair<std::uint64_t, double>> holds_;
};

}  // namespace tallowmark::VideoRepair
