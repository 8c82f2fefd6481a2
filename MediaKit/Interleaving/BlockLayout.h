// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "MediaKit/Interleaving/SoundArrivals.h"
#include "MediaKit/Interleaving/TrackOrder.h"
#include "MediaKit/Sound/SoundHabits.h"

namespace tallowmark {

/// Bytes that are always the same in one place beside sound: some cameras head each piece of media
/// with a record of its own.
struct SoundMark {
  std::array<std::uint8_t, 16> bytes{};
  /// Bit i: byte i is always the same.
  std::uint32_t fixed = 0;
  /// How much a match proves, in bits; 0 when there is no such habit.
  double bits = 0;

  /// Whether `there`, as many bytes as `bytes`, has the fixed ones.
  bool matches(std::span<const std::uint8_t> there) const;
};

/// Sound of other kinds that stands between a camera's AAC blocks.
struct SoundBeside {
  /// Bytes of its stretches ahead of a block; 0 when there is none.
  std::uint64_t shortest = 0;
  std::uint64_t longest = 0;
  /// It takes as many bytes in any clip, so that blocks are due behind it at known places.
  bool isUncompressed = false;
  /// What opens it behind a block.
  SoundMark opening;

  /// Whether about as many of its bytes may stand ahead of a block.
  bool mayFill(std::uint64_t distance) const;
};

/// How a camera mixes AAC sound and other tracks in between its pictures, as the reference's index
/// shows it.
struct BlockLayout {
  /// How blocks look, by kind. Blocks of one kind look alike; those of two differ in their channels
  /// and so tell by themselves of which they are. The first is the first sound track's.
  std::vector<SoundHabits> kinds;
  /// A sound track of the movie: its number in the movie's list.
  struct SoundTrack {
    std::size_t number = 0;
    std::uint8_t kind = 0;
  };
  /// The first is the movie's first sound track.
  std::vector<SoundTrack> tracks;
  /// Tells blocks of these tracks apart by their kind and their place in a gap.
  TrackOrder order;
  /// Usual distances in bytes from the end of a picture or of sound to the sound that comes next,
  /// and from sound to the picture that comes next.
  std::vector<std::uint64_t> dueBehind;
  std::vector<std::uint64_t> edgeAhead;
  /// Right ahead of every stretch of sound.
  SoundMark mark;
  SoundBeside beside;
  /// The most blocks of any gap, over all tracks.
  std::uint64_t mostBlocks = 0;
  /// The fewest and the most bytes of other data in a gap.
  std::uint64_t fewestOthers = 0;
  std::uint64_t mostOthers = 0;
  /// Some gaps have other data and no sound.
  bool hasGapsWithoutSound = false;
  /// How its blocks, of all tracks, come between its pictures.
  SoundArrivals arrivals;
  /// How far sound is ahead of the picture behind gaps with sound.
  SoundLead lead;
  /// The same without the first of them, where cameras begin with more of one than of the other,
  /// and by how many seconds that swings from one such gap to the next.
  SoundLead laterLead;
  double leadStep = 0;
  /// Seconds by which its sound ends behind its pictures.
  double endLead = 0;

  /// Walks blocks of all the tracks.
  BlockWalk walk() const;
  /// How many bytes stand between two pictures where sound takes all that its syntax allows.
  std::uint64_t mostBytes() const;
  /// Of which kind a block of this pattern is.
  std::uint8_t kindOf(ElementPattern pattern) const;

  /// Whether a distance is one of `dueBehind`, or of `edgeAhead`.
  bool isDueBehind(std::uint64_t distance) const;
  bool isEdgeAhead(std::uint64_t distance) const;

  /// Nothing when the movie's first sound track is not AAC or not beside video, or when blocks of
  /// another one cannot be told from its. Throws DeviceError.
  static std::optional<BlockLayout> learn(const Movie& reference, const ByteSource& source);
  /// The same of the AAC tracks beside a movie's first sound track, which is of another kind.
  static std::optional<BlockLayout> learnBeside(const Movie& reference, const ByteSource& source);

  /// Whether a track of the reference is one of its tracks.
  bool isOf(const Movie& reference, const Track& track) const;

 private:
  static std::optional<BlockLayout> learnFrom(const Track* audio, const Movie& reference,
                                              const ByteSource& source);
};

}  // namespace tallowmark
