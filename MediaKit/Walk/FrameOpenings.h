// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "MediaKit/Container/ByteSet.h"
#include "MediaKit/Walk/StreamEvidence.h"

namespace tallowmark {

/// The bytes that a camera's frames open with, for the search through gigabytes: a length prefix, a
/// header, and what stands behind it. Nearly every position is refused by these bytes alone.
class FrameOpenings {
 public:
  FrameOpenings(const StreamEvidence& evidence, std::uint64_t maxFrameSize);

  /// Bytes from a frame's start on that are looked at.
  std::size_t length() const { return prefix_ + 3; }
  /// The reference has no frame to open.
  bool empty() const { return mostBodyOfAny_ == 0; }

  /// The first position from `from` on at which a frame may open and whose length() bytes are
  /// there.
  std::optional<std::size_t> find(std::span<const std::uint8_t> bytes, std::size_t from) const;

 private:
  void learn(const UnitHabit& habit, const StreamEvidence& evidence, std::uint64_t maxFrameSize);
  void openOnWrappers(std::uint64_t maxFrameSize);
  void gatherRanges();
  bool mayOpen(const std::uint8_t* data) const;
  ByteLanes::Mask mayBeLength(const std::uint8_t* data) const;
  ByteLanes::Mask mayBeHeader(const std::uint8_t* data) const;
  bool mayOpenInStride(const std::uint8_t* data) const;

  std::size_t prefix_;
  // By the first byte of the header: what may be the byte behind that, and the one behind it.
  using Following = std::array<std::array<bool, 256>, 256>;
  Following seconds_{};
  Following thirds_{};
  // By the first byte of the header: the most bytes that such a unit has.
  std::array<std::uint64_t, 256> mostBody_{};
  std::uint64_t mostBodyOfAny_ = 0;
  // What lies within these is worth a look at the tables above.
  ByteLanes::Range lengthSeconds_;
  ByteSet<4> headerFirsts_;
  ByteSet<1> headerSeconds_;
};

}  // namespace tallowmark
