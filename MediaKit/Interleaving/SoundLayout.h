// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Interleaving/BlockLayout.h"
#include "MediaKit/Interleaving/ChunkOrder.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "MediaKit/Interleaving/PCMLayout.h"
#include "MediaKit/Interleaving/SoundTexture.h"

namespace tallowmark {

/// How a camera mixes PCM sound and other tracks in between its pictures, as the reference's index
/// shows it: which stretches of a gap are sound, and how far sound runs ahead of the picture in the
/// file.
class SoundLayout {
 public:
  /// Nothing when the movie has no PCM sound beside its video. `beside`: AAC tracks, whose blocks
  /// are found by themselves, so that they end a gap as pictures do; null for none.
  static std::optional<SoundLayout> learn(const Movie& reference, const ByteSource& source,
                                          const BlockLayout* beside = nullptr);

  const PCMLayout& pcm() const { return pcm_; }

  /// Whether sound turns into something else at `at` (or the other way round): where the reference
  /// has sound next to frames, one of a frame's ends. Throws DeviceError.
  bool isEdge(const ByteSource& source, std::uint64_t at, bool soundIsBefore) const;

  /// What of a gap is sound.
  struct Division {
    /// Stretches of whole samples, in file order.
    std::vector<ByteRange> sound;
    /// For each stretch where as many samples of each of `others` begin; none where they are lost.
    std::vector<std::vector<std::optional<std::uint64_t>>> others;
    /// The gap is one as the reference has them: nothing was lost in it.
    bool isUsual = false;
    /// It is all there, but nothing tells what of it is whose.
    bool isUndivided = false;
    /// As long as sound may be, but neither a length that the reference has nor like its sound.
    bool isDoubtful = false;
    /// And like no other sound, however loud.
    bool isNoSound = false;
  };

  /// What is known of a gap besides its bytes: the frames on both sides count on from one another,
  /// or it lies behind the last, up to where the camera ended its media.
  enum class Neighbours { countOn, endOfMedia, unknown };

  /// Divides the gap [from, to) between two frames by the reference's gaps. Where the two frames do
  /// not count on from one another it must also sound like the reference, and where no gap of the
  /// reference explains it, only what does so beside the two frames is taken. `source` is the
  /// damaged file. Throws DeviceError.
  Division divide(const ByteSource& source, std::uint64_t from, std::uint64_t to,
                  Neighbours neighbours) const;

  /// Whether a gap between frames that count on is as the reference's; where its size alone tells
  /// little, also whether its sound begins with no more noise. Throws DeviceError.
  bool isLike(const ByteSource& source, const ByteRange& gap) const;

  /// Gaps are divided by the order and the places of their chunks.
  bool goesByOrder() const { return order_.has_value(); }

  /// The most bytes of sound that a stretch of it may have.
  std::uint64_t mostSound() const;

  /// PCM tracks that take turns with this one, in the order of their chunks, and bytes of a sample.
  /// They point into the reference's movie.
  struct OtherTrack {
    const Track* track = nullptr;
    std::uint32_t sampleSize = 0;
  };
  std::vector<OtherTrack> others() const;

  /// How far sound runs ahead of the picture in the file.
  const SoundLead& lead() const { return lead_; }
  /// Seconds of a sample of sound, and of a tick of the pictures.
  double soundTick() const { return soundTick_; }
  double pictureTick() const { return pictureTick_; }
  /// The same where pictures follow sound: there its chunks do not make it swing.
  const SoundLead& leadBehindSound() const { return leadBehindSound_; }
  /// Seconds of a chunk of sound, where nearly all but the first are alike; else 0.
  double usualChunk() const { return usualChunk_; }

 private:
  friend class SoundLayoutLearner;

  /// Gaps of one build, such as sound then other data ("AO").
  struct Pattern {
    std::uint64_t count = 0;
    /// Bytes before and behind the one stretch of sound.
    std::set<std::pair<std::uint64_t, std::uint64_t>> others;
  };

  /// Where the one stretch of sound in a gap may be.
  struct Candidate {
    ByteRange sound;
    /// What is beside it has just as many bytes in this many gaps of the reference.
    bool isExact = false;
    std::uint64_t count = 0;
  };

  bool isUsualSound(std::uint64_t bytes) const;
  std::vector<Candidate> candidates(std::uint64_t from, std::uint64_t to) const;
  bool hasOtherTracks() const;
  bool mayGoOn(std::uint64_t bytes, Neighbours neighbours) const;
  std::optional<ByteRange> byKnownTotal(std::uint64_t from, std::uint64_t to) const;
  std::size_t edgesThatFit(const ByteSource& source, const ByteRange& gap,
                           const ByteRange& sound) const;
  std::optional<ByteRange> byPattern(const ByteSource& source, std::uint64_t from,
                                     std::uint64_t to) const;
  std::optional<ByteRange> beforeItems(const ByteSource& source, std::uint64_t from,
                                       std::uint64_t to) const;
  using IsLike = bool (SoundTexture::*)(std::span<const std::uint8_t>) const;
  double shareOf(IsLike isLike, const ByteSource& source, const ByteRange& range) const;
  bool isMostly(IsLike isLike, const ByteSource& source, const ByteRange& range) const;
  bool isMostlySound(const ByteSource& source, const ByteRange& range) const;
  bool isMostlyNoSound(const ByteSource& source, const ByteRange& range) const;
  Division byOrder(const ByteSource& source, std::uint64_t from, std::uint64_t to,
                   Neighbours neighbours) const;
  Division divisionOf(const ByteSource& source, const std::vector<std::vector<ByteRange>>& chunks,
                      bool isCertain) const;
  Division startOf(const ByteSource& source, std::uint64_t from, std::uint64_t to) const;
  ByteRange soundingStart(const ByteSource& source, const ByteRange& range) const;
  std::vector<ByteRange> besideFrames(const ByteSource& source, std::uint64_t from,
                                      std::uint64_t to) const;

  PCMLayout pcm_;
  /// Gap size → (bytes before the sound, bytes of sound), where the reference is unanimous.
  std::map<std::uint64_t, std::optional<std::pair<std::uint64_t, std::uint64_t>>> totals_;
  std::map<std::string, Pattern> patterns_;
  /// Bytes of large stretches of sound.
  std::set<std::uint64_t> chunks_;
  std::uint64_t smallestSound_ = 0;
  std::uint64_t largestSound_ = 0;
  /// Its chunks stand between blocks of AAC.
  bool isAmongBlocks_ = false;
  bool soundFollowsFrames_ = false;
  bool soundPrecedesFrames_ = false;
  /// Where a gap's size alone does not tell what in it is sound.
  std::optional<ChunkOrder> order_;
  SoundTexture texture_;
  SoundLead lead_;
  SoundLead leadBehindSound_;
  double usualChunk_ = 0;
  double soundTick_ = 0;
  double pictureTick_ = 0;
};

}  // namespace tallowmark
