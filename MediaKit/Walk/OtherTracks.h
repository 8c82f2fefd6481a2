// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Walk/EvidenceWalk.h"
#include "MediaKit/Walk/FrameFinder.h"
#include "MediaKit/Walk/PictureSizes.h"
#include "MediaKit/Walk/RowNumbers.h"

namespace tallowmark::VideoRepair {

/// Other video tracks in a damaged clip, whose pictures may number theirs as this one's do and take
/// turns with them: two lenses of one phone. Tells whose a picture is, by its numbers, by the turns
/// that the reference's index shows and by the numbers and sizes of those that follow. Without
/// other tracks everything is this one's, at no cost.
class OtherTracks {
 public:
  /// From `from` on. `ours` finds this track's pictures; `isSound` says whether nothing but sound
  /// fills a stretch. All must outlive it.
  OtherTracks(const ByteSource& source, std::uint64_t from, const WalkLessons& lessons,
              FrameFinder& ours, std::function<bool(const ByteRange&)> isSound);

  /// One of their pictures, as far as can be told from it alone. Throws DeviceError.
  std::optional<FoundFrame> at(std::uint64_t at);
  /// Whether a picture that could be of this track is another's. Throws DeviceError.
  bool own(const FoundFrame& frame);
  /// Whether one of theirs begins a little before it and holds it, as one that opens with parameter
  /// sets holds its slice. Throws DeviceError.
  bool hold(const FoundFrame& candidate);
  bool wasPassedLast(const FoundFrame& candidate) const {
    return turn_.lastForeign && turn_.lastForeign->offset == candidate.offset;
  }

  /// The walk took this track's picture, or went past another's. Throws DeviceError.
  void take(const FoundFrame& frame);
  void pass(const FoundFrame& foreign);
  /// Something is missing ahead of the picture taken next.
  void noteLoss() { turn_.forget(); }

 private:
  /// Where this track's pictures and another's stand, as far as nothing is missing.
  struct Turn {
    /// `lastOurs_` is this track's last picture.
    bool isOursKnown = false;
    /// The other track's.
    std::optional<FoundFrame> lastForeign;
    /// Pictures of one of them since the last of the other's, or since the last loss.
    std::uint64_t ours = 0;
    std::uint64_t theirs = 0;
    /// Its beginning was seen.
    bool isRowWhole = true;
    /// Which row of the file it is; nothing behind a loss.
    std::optional<std::size_t> row = 0;
    /// Pictures since rows were compared.
    std::uint64_t unasked = 0;
    /// The end of the last picture of either.
    std::uint64_t end = 0;

    void forget() { *this = {.isRowWhole = false, .row = std::nullopt, .end = end}; }
    void endRow();
    void take(const FoundFrame& frame, bool isLed);
    void pass(const FoundFrame& foreign, bool isLed);
  };

  std::optional<FoundFrame> inTurnBehind(std::uint64_t end);
  void learnReferenceNumbers();
  const RowNumbers& numbersToGoBy() const;
  bool countSteadily() const;
  bool referenceClearlyFits() const;
  bool clipIsLearnt() const;
  std::pair<const PictureSizes*, const PictureSizes*> sizesToGoBy() const;
  void learn(const FoundFrame& frame, bool isOther);
  /// A picture that may be of either track.
  struct EitherFrame {
    FoundFrame ours;
    FoundFrame foreign;
  };
  /// Bits that a sequence of pictures gives for one way to tell whose they are.
  struct RowBits {
    /// How each track counts on, and against the other.
    double succession = 0;
    double turns = 0;
    double sizes = 0;
  };
  std::vector<EitherFrame> framesFrom(const FoundFrame& frame);
  RowBits bitsOf(const std::vector<EitherFrame>& frames, std::uint64_t ahead) const;
  std::array<RowBits, 2> bestBits(const std::vector<EitherFrame>& frames) const;
  double rowBitsForOther(const FoundFrame& frame);
  double comparedRows(const FoundFrame& frame);
  bool contradictsRows(const FoundFrame& frame, bool isOther);
  bool isLedTo(const FoundFrame& frame);
  std::optional<bool> turnTellsOther(bool isOurs) const;

  const std::uint64_t end_;
  const WalkLessons& lessons_;
  const StreamEvidence& evidence_;
  FrameFinder& ours_;
  const std::function<bool(const ByteRange&)> isSound_;
  std::vector<std::unique_ptr<FrameFinder>> finders_;
  std::optional<FoundFrame> lastOurs_;
  Turn turn_;
  /// Of the clip's pictures, as long as it is sure whose they are; and bits in favour of the
  /// reference's as theirs.
  PictureSizes clipOurs_;
  PictureSizes clipTheirs_;
  double referenceFits_ = 0;
  RowNumbers clipNumbers_;
  RowNumbers referenceNumbers_;
  std::optional<std::pair<ByteRange, bool>> askedForSound_;
  /// The position for which rows were compared last, and what they said.
  std::optional<std::pair<std::uint64_t, double>> compared_;
  std::uint64_t comparisons_ = 0;
  std::uint64_t pictures_ = 0;
};

}  // namespace tallowmark::VideoRepair
