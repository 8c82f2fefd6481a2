// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Bitstream/SliceHeader.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Walk/KeyHabits.h"
#include "MediaKit/Walk/PictureSizes.h"

namespace tallowmark {

/// How the reference uses units with one header.
struct UnitHabit {
  std::uint16_t header = 0;
  /// Where in a sample they were seen: as its first unit, before the first slice, between the two
  /// fields of a frame, behind the last slice.
  bool starts = false;
  bool leads = false;
  bool between = false;
  bool trails = false;
  bool isSlice = false;
  /// The reference has no such unit, but a longer one of its camera may: a slice of another type.
  bool isAssumed = false;
  /// Bytes without the length prefix.
  std::uint32_t smallest = 0xFFFFFFFFU;
  std::uint32_t largest = 0;
  /// (slice type, picture parameter set) of slices that begin a picture, and of the others; and how
  /// many there are of each.
  using SliceKinds = std::map<std::pair<std::uint32_t, std::uint32_t>, std::uint64_t>;
  SliceKinds firstSlices;
  SliceKinds laterSlices;

  /// A camera's small units stay small: sizes tell them from sound that reads as one.
  std::uint64_t mostBytes() const { return std::uint64_t{largest} * 4 + 1024; }
};

/// Everything a good clip teaches about its camera's pictures beyond the set of headers: enough to
/// tell a frame from sound, telemetry and noise that happen to read as one. Strength of evidence is
/// counted in bits: n bits means that other data would look like this once in 2^n.
class StreamEvidence {
 public:
  /// Looks at up to some thousand samples of `track`, at the first bytes of each unit only. Nothing
  /// when its samples are not framed as `format` says. Throws DeviceError.
  static std::optional<StreamEvidence> learn(const Track& track, const ByteSource& source,
                                             const NALFormat& format);

  /// Goes by the parameter sets of the clip's own pictures in place of the reference's.
  void adoptSets(const StreamEvidence& own);
  /// The same where nothing but the sets is known.
  void goBy(const ParameterSets& sets);
  /// Takes over the kinds of slices that many of the clip's own pictures have and the reference has
  /// not; says whether there are any.
  bool adoptSlices(const StreamEvidence& own);
  /// Takes over how many bytes often lie between the clip's own pictures where the reference never
  /// has so many, nor so few: its sound is of another kind. Says whether there are any.
  bool adoptGaps(const StreamEvidence& own);

  /// Drops what the reference has between its pictures: another kind of sound stands there.
  void forgetGaps();
  /// Takes delimiters, messages and parameter sets ahead of a picture as they come (ITU-T H.264
  /// §7.4.1.2.3, H.265 §7.4.2.4.4), whether the reference has them or not.
  void allowOtherFraming();

  /// Compressed sound may fill so many bytes between two pictures: how many it does hangs on what
  /// is heard.
  void expectSound(std::uint64_t mostBytes) { mostSound_ = mostBytes; }

  const NALFormat& format() const { return format_; }
  const ParameterSets& parameterSets() const { return sets_; }
  const std::vector<UnitHabit>& habits() const { return habits_; }
  /// Null for headers the reference does not have.
  const UnitHabit* habit(std::uint16_t header) const;

  /// The fewest slices that any picture of the reference has.
  unsigned fewestSlices() const { return fewestSlices_; }
  /// Frames of the reference open with access unit delimiters.
  bool hasDelimiters() const { return hasDelimiters_; }
  /// Sequence parameter sets stand in the reference's pictures.
  bool expectsParameterSets() const;
  /// Samples hold two fields, each a picture of its own.
  bool hasFieldPairs() const { return fieldPairs_; }
  const KeyHabits& keys() const { return keys_; }
  /// The unit that ends every sample of the reference, when there is one that is no slice.
  std::optional<std::uint16_t> closingHeader() const { return closingHeader_; }
  /// Units of the reference hold stretches that the standard forbids inside units (start codes,
  /// H.264 §7.4.1): then such a stretch proves nothing.
  bool breaksEmulationRule() const { return breaksEmulationRule_; }

  /// Bits in favour of what stands behind a frame that no frame follows: its first bytes are as in
  /// the reference, or they are not. 0 when the reference shows no habit.
  double followerBits(std::span<const std::uint8_t> bytes) const;
  /// Bits in favour of a frame that starts `gap` bytes behind the one before.
  double gapBits(std::uint64_t gap) const;
  /// Distances of frames that come again and again, in order.
  const std::vector<std::uint64_t>& usualGaps() const { return usualGaps_; }
  /// Whether about as many bytes lie between two frames of the reference.
  bool isUsualGap(std::uint64_t gap) const;
  /// So few frames were seen that their kinds say little about the others.
  bool isShort() const { return isShort_; }
  /// The largest stretch between two frames of the reference, or that sound may fill.
  std::uint64_t largestGap() const { return std::max(largestGap_, mostSound_); }

  /// Bits in favour of `slice` as the next picture after `before` in decoding order; negative when
  /// their counters contradict each other.
  double successionBits(const SliceHeader& before, const SliceHeader& slice) const;
  /// The reference's own pictures never contradict each other so: then a pair that does is not of
  /// one stream.
  bool countsReliably() const { return countsReliably_; }
  const PictureSizes& sizes() const { return sizes_; }
  /// A picture of the reference, where it lies in the file.
  struct PlacedPicture {
    std::uint64_t offset = 0;
    SliceHeader slice;
  };
  /// The reference's first few hundred pictures.
  const std::vector<PlacedPicture>& firstPictures() const { return firstPictures_; }
  /// Whether `slice` has the very numbers of `before`, as no two neighbours of the reference have.
  bool isRepeated(const SliceHeader& before, const SliceHeader& slice) const;

 private:
  friend class EvidenceLearner;

  NALFormat format_;
  ParameterSets sets_;
  std::vector<UnitHabit> habits_;
  unsigned fewestSlices_ = 1;
  bool hasDelimiters_ = false;
  bool fieldPairs_ = false;
  KeyHabits keys_;
  bool breaksEmulationRule_ = false;
  std::optional<std::uint16_t> closingHeader_;
  std::vector<std::uint32_t> followers_;
  bool followersAreComplete_ = false;
  std::set<std::uint8_t> firstFollowers_;
  std::vector<std::uint64_t> commonGaps_;
  /// Those that come again and again, and such as another clip of the stream has.
  std::vector<std::uint64_t> usualGaps_;
  std::set<std::uint64_t> adoptedGaps_;
  bool gapsAreComplete_ = false;
  bool isShort_ = false;
  std::uint64_t smallestGap_ = 0;
  std::uint64_t largestGap_ = 0;
  std::uint64_t mostSound_ = 0;
  std::uint32_t largestOrderStep_ = 0;
  bool countsReliably_ = false;
  bool neverRepeats_ = false;
  PictureSizes sizes_;
  std::vector<PlacedPicture> firstPictures_;
};

}  // namespace tallowmark
