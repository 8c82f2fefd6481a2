// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// A stretch of a good clip's file that holds samples of one track, one behind the other.
struct Extent {
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  const Track* track = nullptr;
  std::uint64_t samples = 0;
  /// Seconds of the track before it, and in it.
  double startTime = 0;
  double length = 0;
};

/// All stretches of a movie in file order. They point into the movie.
std::vector<Extent> extentsOf(const Movie& movie);

/// Seconds by which sound runs ahead of the picture in the file: at the first frame, at the usual
/// one, the least and most of any, and the least and most of nearly all.
struct SoundLead {
  double first = 0;
  double usual = 0;
  double least = 0;
  double most = 0;
  double mostlyLeast = 0;
  double mostlyMost = 0;
  /// Half of them are smaller.
  double middle = 0;

  /// Of the leads of a clip in the order of the file; zeros without any.
  static SoundLead of(std::vector<double> leads);
  /// All of them by that many seconds.
  void moveBy(double seconds);
};

/// Sound stored before each stretch of pictures, against the pictures' own time.
SoundLead leadOf(const std::vector<Extent>& extents, const Track& video, const Track& audio);
/// The same of the pictures alone that follow sound; all but `first` without the first of them.
SoundLead leadBehindSound(const std::vector<Extent>& extents, const Track& video,
                          const Track& audio);

/// How a video track and others take turns in a good clip's file.
struct Turns {
  /// The most frames of the track that usually come before one of another's; nothing when that is
  /// seldom seen.
  std::optional<std::uint64_t> mostInARow;
  /// As many of its frames and as many of another's, a few dozen at most, follow one another nearly
  /// always.
  struct Rows {
    std::uint64_t ours = 1;
    std::uint64_t theirs = 1;
  };
  std::optional<Rows> rows;
  /// Frames in a row where both tracks' are as long, else 0.
  std::uint64_t sharedRow() const { return rows && rows->ours == rows->theirs ? rows->ours : 0; }
  /// A file's first rows, which are others where one track's pictures are held back longer; and
  /// whether the first is another's.
  std::vector<std::uint64_t> firstRows;
  bool theirsFirst = false;
  /// How many bytes lie between a frame of one and the next of any, from few on; none when they are
  /// of many sizes.
  std::vector<std::uint64_t> gaps;
};

/// `video` is a track of `movie`.
Turns turnsOf(const Movie& movie, const Track& video);

}  // namespace tallowmark
