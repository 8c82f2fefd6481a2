// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "MediaKit/Container/FourCC.h"
#include "MediaKit/Container/SampleList.h"

namespace tallowmark {

/// A 3×3 transformation of the picture as files store it: 16.16 fixed point, the third column 2.30
/// (ISO/IEC 14496-12 §8.2.2). Rotation and mirroring live here.
using TransformationMatrix = std::array<std::uint32_t, 9>;
inline constexpr TransformationMatrix unityMatrix{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};

/// One track of a movie with all its samples.
struct Track {
  enum class Kind { video, audio, other };

  std::uint32_t trackID = 0;
  Kind kind = Kind::other;
  /// Ticks per second of the media.
  std::uint32_t timescale = 0;
  /// The whole first sample description, header included; empty when there is none.
  std::vector<std::uint8_t> sampleEntry;
  /// Its type; four question marks when there is none.
  FourCC codec{"????"};
  /// Pixels, from the track header.
  double width = 0;
  double height = 0;
  /// Packed ISO 639-2 code (or QuickTime's number) as it stands (§8.4.2).
  std::uint16_t language = 0;
  SampleList samples;
  /// The handler type (§8.4.3).
  FourCC handler{"????"};
  /// What a copy calls the handler of a track that is neither picture nor sound: programs that read
  /// telemetry look for their camera's name. Empty for the usual one; parsing leaves it so.
  std::string handlerName;
  /// Media time at which presentation starts, from the edit list, in the track's timescale.
  std::int64_t mediaStart = 0;
  /// Empty time before the track starts, from the edit list, in the movie's timescale.
  std::uint64_t startDelay = 0;
  /// The whole media-information header (vmhd, gmhd, …), header included.
  std::optional<std::vector<std::uint8_t>> mediaHeader;
  /// Rotation and mirroring of the picture.
  TransformationMatrix matrix = unityMatrix;
  std::uint16_t layer = 0;
  std::uint16_t alternateGroup = 0;
  /// Whole boxes of the track that players and editors look for, in file order: references to
  /// other tracks (tref), the aperture (tapt), user data, metadata.
  std::vector<std::vector<std::uint8_t>> extraBoxes;

  /// Sum of all sample durations, in the track's timescale.
  std::uint64_t duration() const { return samples.duration(); }
  /// The duration most samples have; 1 without samples.
  std::uint32_t typicalDuration() const { return samples.typicalDuration(); }
};

/// A stretch of a file that no index describes: written in pieces (movie fragments), of which none
/// that is readable tells of it; or moved from where the index has it.
struct LostPiece {
  /// Where a track goes on behind it.
  struct Resumption {
    std::uint32_t trackID = 0;
    /// Number of the first sample behind.
    std::uint64_t sample = 0;
    /// How much later it starts than the sample ahead would have ended, in the track's timescale:
    /// that one was made longer by it. Absent where the file does not say.
    std::optional<std::uint64_t> ticks;
  };

  /// Positions in the file. Where only a box's size is lost they are one.
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  /// All that followed lies elsewhere than the index says.
  bool isMoved = false;
  /// Nothing is written there.
  bool isBlank = false;
  /// Tracks that go on only behind a later lost piece, or not at all, are not among them.
  std::vector<Resumption> resumptions;

  /// Where that track goes on; null when it is not among them.
  const Resumption* resumptionOf(std::uint32_t trackID) const;
  Resumption* resumptionOf(std::uint32_t trackID);
};

/// A movie's index as a value: what the repair, the join and the writer share.
struct Movie {
  /// Ticks per second of the movie header; 600 when there is none.
  std::uint32_t timescale = 600;
  /// In the order of the file.
  std::vector<Track> tracks;
  /// The whole file-type box, header included; empty when the file has none.
  std::vector<std::uint8_t> fileType;
  /// Seconds since 1904; 0 when absent.
  std::uint64_t creationTime = 0;
  /// The whole user-data box of the movie, header included.
  std::optional<std::vector<std::uint8_t>> userData;
  /// The whole metadata box of the movie: camera, place and date on phones.
  std::optional<std::vector<std::uint8_t>> metadata;
  /// In file order. Writing leaves them aside.
  std::vector<LostPiece> lostPieces;

  /// The first track of that kind; null when there is none. Valid while the movie is unchanged.
  const Track* videoTrack() const { return first(Track::Kind::video); }
  const Track* audioTrack() const { return first(Track::Kind::audio); }

  /// The length of the longest track.
  double seconds() const;

 private:
  const Track* first(Track::Kind kind) const;
};

}  // namespace tallowmark
