// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Video/VideoRepair.h"
#include "Tests/Support/Files.h"

/// A good clip, its index dropped, rebuilt and held against the index that was dropped.
namespace tallowmark::testing {

/// What overwrites a hole.
enum class Filling { zeros, noise, otherFile };

/// A clip whose index is gone and whose media may have holes; the truth stays beside it.
class Victim {
 public:
  /// Reads a good clip and blanks its index where it stands: a `free` box of zeros.
  explicit Victim(const std::filesystem::path& clip);

  /// Overwrites `count` stretches of the media data at places that `seed` chooses.
  void punch(unsigned seed, unsigned count, std::size_t size, Filling filling,
             const Bytes& otherFile = {});
  /// Overwrites [from, to) with zeros.
  void blank(std::uint64_t from, std::uint64_t to);

  const Bytes& bytes() const { return bytes_; }
  const Movie& truth() const { return truth_; }
  bool isTouched(std::uint64_t from, std::uint64_t to) const;

 private:
  Bytes bytes_;
  Movie truth_;
  ByteRange media_;
  std::vector<ByteRange> holes_;
};

/// How a rebuilt clip compares; frames and sound that a hole touches do not count.
struct Comparison {
  std::uint64_t frames = 0;
  /// Offset, size and key frame as in the dropped index.
  std::uint64_t exact = 0;
  /// Lie before the first key frame that is left, so that nothing can show them.
  std::uint64_t beforeKeyframe = 0;
  std::uint64_t missed = 0;
  /// Stand where the dropped index has no frame.
  std::uint64_t invented = 0;
  /// Bytes of sound in the dropped index, of the first track and of all PCM tracks, and those that
  /// are sound of that track in the copy, too.
  std::uint64_t sound = 0;
  std::uint64_t soundRight = 0;
  /// Bytes of sound in the copy that are none in the dropped index and lie in no hole.
  std::uint64_t soundWrong = 0;
  /// Seconds by which PCM tracks run apart that did not.
  double tracksApart = 0;
  /// Blocks of compressed sound that no hole touches, those found with their size in the right
  /// track, and blocks in the copy that stand where none was and in no hole.
  std::uint64_t blocks = 0;
  std::uint64_t blocksExact = 0;
  std::uint64_t blocksInvented = 0;
  /// Blocks ahead of the first one in the copy, which go with pictures that nothing can show.
  std::uint64_t blocksBeforeKeyframe = 0;
  /// Telemetry samples that no hole touches, those found with their size, those in the copy that
  /// are none and lie in no hole, and the largest difference in when one starts, in seconds against
  /// the picture behind it.
  std::uint64_t telemetry = 0;
  std::uint64_t telemetryExact = 0;
  std::uint64_t telemetryInvented = 0;
  double worstTelemetryTime = 0;
  /// The clip has a timecode, and the copy has its very bytes and no other.
  bool hasTimecode = false;
  bool timecodeRight = false;
  /// The largest difference in how far a frame is shown from the sound before it, in frame
  /// durations.
  double worstStep = 0;
  /// By how many seconds a frame is shown earlier or later than it was against the sound that is
  /// heard with it, as far as some of that is left. The largest.
  double apart = 0;
  /// Frames of both, and those that are shown at the same place among these.
  std::uint64_t shared = 0;
  std::uint64_t inOrder = 0;
  /// The largest difference between when a frame of both is shown then and now, counted from the
  /// first such frame, in frame durations.
  double worstTime = 0;
  VideoRepair::Result result;
};

/// Rebuilds the victim with `reference`. Throws what rebuilding throws.
Comparison rebuildAndCompare(const Victim& victim, const std::filesystem::path& reference);

}  // namespace tallowmark::testing
