// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Interleaving/BlockSearch.h"
#include "MediaKit/Walk/CandidateStream.h"
#include "MediaKit/Walk/EvidenceWalk.h"
#include "MediaKit/Walk/FrameFinder.h"
#include "MediaKit/Walk/OtherTracks.h"
#include "MediaKit/Walk/SideCollector.h"

namespace tallowmark::VideoRepair {

/// Tells which pictures of a damaged clip are to be believed: the one that is due behind the last
/// one, and by searching, where the chain is broken, the one to go on with. The walk says which it
/// took. Positions only grow but for `goBackTo`. Takes time linear in the clip.
class PictureSearch {
 public:
  /// What the walk tells of pictures and of what lies between them.
  struct Asking {
    /// Whether a picture follows another in an unbroken chain: it stands right behind, or sound as
    /// the reference has it leads from one to the other.
    std::function<bool(const FoundFrame&, const FoundFrame&)> follows;
    /// Whether there is nothing but such sound.
    std::function<bool(const ByteRange&)> isSound;
  };

  /// From `from` on. All it refers to must outlive it. `side` knows telemetry, which is passed
  /// over.
  PictureSearch(const ByteSource& source, std::uint64_t from, const WalkLessons& lessons,
                SideCollector& side, Asking asking, const StopToken& stop);

  /// The picture at a position where one is due: behind another one, or where media data starts.
  /// Throws DeviceError.
  std::optional<FoundFrame> due(std::uint64_t at);

  /// The next picture that is believed. `passed` is told how far the search got. Throws
  /// DeviceError, Stopped.
  std::optional<FoundFrame> next(std::uint64_t from,
                                 const std::function<void(std::uint64_t)>& passed);

  /// The end of another video track's picture at `at`, which is passed over; nothing when there is
  /// none. Throws DeviceError.
  std::optional<std::uint64_t> passForeign(std::uint64_t at);

  /// Other video tracks' pictures that the last search passed, in order.
  const std::vector<ByteRange>& passed() const { return passed_; }

  /// The picture taken last.
  const std::optional<FoundFrame>& last() const { return last_; }
  void take(const FoundFrame& frame) {
    others_.take(frame);
    last_ = frame;
    ++sinceLoss_;
  }
  /// Something is missing ahead of the picture taken next.
  void noteLoss() {
    sinceLoss_ = 0;
    others_.noteLoss();
  }

  /// Other data that was written over a clip may end in the middle of a picture, whose length then
  /// leads far into what is left of the clip. The first picture within the last one that leads to
  /// `next`, as the last one does not: then that is none. Where `next` is null, none was found.
  /// Throws DeviceError.
  std::optional<FoundFrame> swallowedBefore(const FoundFrame* next);
  /// Searches anew from `offset` on, before what was gone through.
  void goBackTo(std::uint64_t offset) { candidates_.goBackTo(offset); }

  /// What the last search passed whose heads can be read, though it is not believed as a whole.
  const TornPictures& torn() const { return torn_; }

 private:
  struct Judged {
    FoundFrame frame;
    double score = 0;
  };
  enum class SoundEdge { start, end };

  bool liesInUsualGap(const FoundFrame& candidate, std::uint64_t searchedFrom);
  void rememberTorn(const FoundFrame& candidate);
  double scoreByItself(const FoundFrame& frame, std::uint64_t searchedFrom);
  double edgeBits(const FoundFrame& frame, SoundEdge edge);
  bool isEnough(double bits, const FoundFrame& frame, double enough);
  double score(const FoundFrame& frame, std::uint64_t searchedFrom);
  bool breaksOff(const FoundFrame& frame);
  bool isForeign(const FoundFrame& candidate);
  bool followsDelimiter(std::uint64_t at);
  bool followsOtherSets(std::uint64_t at);
  std::optional<FoundFrame> successor(const FoundFrame& frame);
  bool mayBeExpected(const FoundFrame& candidate, std::uint64_t searchedFrom);
  bool isLinkedBySound(const FoundFrame& candidate, std::uint64_t searchedFrom);
  bool isLastBesideSound(const FoundFrame& candidate);
  double soundBits(const FoundFrame& candidate, std::uint64_t searchedFrom, double known);
  bool isExpected(const Judged& candidate, std::uint64_t searchedFrom);
  bool hasBetterRival(const Judged& candidate, std::uint64_t searchedFrom);
  std::optional<FoundFrame> firstBehind(const FoundFrame& frame, std::uint64_t reach);
  FoundFrame likelierWithin(const FoundFrame& first, const FoundFrame& frame);
  double follower(const FoundFrame& frame);
  FoundFrame strongest(const Judged& found, std::uint64_t searchedFrom);
  bool mayLookInside(std::uint64_t bytes);
  bool leadsOut(FoundFrame frame, const FoundFrame* next);
  bool isCertain(const FoundFrame& candidate, std::uint64_t searchedFrom, double itself);

  const ByteSource& source_;
  const std::uint64_t start_;
  const std::uint64_t end_;
  const WalkLessons& lessons_;
  const StreamEvidence& evidence_;
  SideCollector& side_;
  const Asking asking_;
  const StopToken& stop_;
  FrameFinder finder_;
  CandidateStream candidates_;
  OtherTracks others_;
  std::optional<FoundFrame> last_;
  std::vector<ByteRange> passed_;
  /// Pictures taken since a loss; as if there had been many before the first.
  std::uint64_t sinceLoss_ = std::uint64_t{1} << 32U;
  TornPictures torn_;
  /// Bytes that were searched behind candidates, over which the search itself may go once more.
  std::uint64_t lookedBehind_ = 0;
  /// How often one search asked whether sound leads to a candidate.
  int linksTried_ = 0;
  /// Bytes between pictures of kinds that the reference lacks, and of such as sound is to speak
  /// for.
  std::uint64_t followedBySound_ = 0;
  /// Bytes that were gone through for pictures within others.
  std::uint64_t lookedInside_ = 0;
  std::uint64_t links_ = 0;
  std::uint64_t brokenLinks_ = 0;
};

}  // namespace tallowmark::VideoRepair
