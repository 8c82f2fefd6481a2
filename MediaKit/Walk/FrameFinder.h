// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <span>

#include "MediaKit/Bitstream/UnitHead.h"
#include "MediaKit/Container/MediaWindow.h"
#include "MediaKit/Walk/ForbiddenStretches.h"
#include "MediaKit/Walk/FrameOpenings.h"
#include "MediaKit/Walk/StreamEvidence.h"

namespace tallowmark {

/// An access unit found in the media data.
struct FoundFrame {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
  bool isKeyframe = false;
  /// It has a recovery point.
  bool recovers = false;
  /// All slices and the closing unit that the reference's pictures have are there.
  bool isComplete = true;
  /// Every unit is of a kind that the reference has.
  bool isLearnt = true;
  /// Header of the first slice.
  SliceHeader slice;
  /// Evidence that this is a frame at all, from its own units.
  double bits = 0;

  std::uint64_t end() const { return offset + size; }
};

/// Assembles frames by what the reference taught, touching only the first bytes of each unit.
class FrameFinder {
 public:
  /// Which units a frame may have.
  enum class Trust {
    /// Only such as the reference has, in the places where it has them.
    learntOnly,
    /// Any that the standard allows: for a position where a frame is due.
    anyStandard
  };

  /// Source and evidence must outlive it; no frame reaches past `end`.
  FrameFinder(const ByteSource& source, std::uint64_t end, const StreamEvidence& evidence,
              std::uint64_t maxFrameSize);

  const StreamEvidence& evidence() const { return evidence_; }

  /// The frame that starts at `offset`, or nothing. Throws DeviceError.
  std::optional<FoundFrame> frameAt(std::uint64_t offset, Trust trust);

  /// As frameAt, for a position at which a learnt frame only may start: what is made to be slow is
  /// given up. Throws DeviceError.
  std::optional<FoundFrame> maybeFrameAt(std::uint64_t offset);

  /// The first position from `from` on and before `to` at which a learnt frame starts. Throws
  /// DeviceError.
  std::optional<FoundFrame> search(std::uint64_t from, std::uint64_t to);

  /// More units were looked at than a clip has in the bytes gone through: these are made to be
  /// slow, with thousands of units that each lead through the same thousands of others.
  bool isOverworked() const { return unitsSeen_ > unitsAllowed_; }

  /// Whether bytes that cannot stand inside a unit stand inside one of the frame's, looking at its
  /// first `most` bytes. Throws DeviceError.
  bool isContradicted(const FoundFrame& frame,
                      std::uint64_t most = std::numeric_limits<std::uint64_t>::max());

  /// Frees what is remembered of the bytes before `offset`, which are gone through.
  void forgetBefore(std::uint64_t offset);

  /// Bytes at a position, as they stand. Valid until the next call of anything here.
  std::span<const std::uint8_t> bytesAt(std::uint64_t offset, std::size_t count) {
    return probe_.at(offset, count);
  }

 private:
  struct Assembly;

  std::optional<FoundFrame> assemble(Assembly& assembly, std::uint64_t offset, unsigned most);
  bool takeUnit(Assembly& assembly, const UnitHead& head);
  bool takeSlice(Assembly& assembly, const UnitHead& head, const UnitHabit* habit,
                 const NALFormat::Unit& described);
  bool takeOther(Assembly& assembly, const UnitHead& head, const UnitHabit* habit,
                 bool standardAllows, bool startsAccessUnit);
  bool belongsToNext(const Assembly& assembly, const UnitHead& head, const UnitHabit* habit,
                     const NALFormat::Unit& described);
  bool fitsStream(const UnitHead& head);

  const ByteSource& source_;
  std::uint64_t end_;
  const StreamEvidence& evidence_;
  std::uint64_t maxFrameSize_;
  MediaWindow scan_;
  MediaWindow probe_;
  FrameOpenings openings_;
  ForbiddenStretches forbidden_;
  std::uint64_t goneThrough_ = 0;
  std::uint64_t unitsSeen_ = 0;
  std::uint64_t unitsAllowed_;
};

}  // namespace tallowmark
