// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Video/PCMLayout.h"

namespace tallowmark {

/// How a camera mixes PCM sound and other tracks in between its pictures, as the reference's index
/// shows it: which stretches of a gap are sound, and how far sound runs ahead of the picture in the
/// file.
class SoundLayout {
 public:
  /// Nothing when the movie has no PCM sound beside its video.
  static std::optional<SoundLayout> learn(const Movie& reference, const ByteSource& source);

  const PCMLayout& pcm() const { return pcm_; }

  /// The stretch of sound inside the gap [from, to) between two frames, by the reference's gaps;
  /// empty when none of them explains it. `source` is the damaged file. Throws DeviceError.
  ByteRange soundIn(const ByteSource& source, std::uint64_t from, std::uint64_t to) const;

  /// Seconds by which sound runs ahead of the picture at the first frame, and at the usual one; and
  /// how far single frames stray from the latter.
  double firstLead() const { return firstLead_; }
  double usualLead() const { return usualLead_; }
  double leadSpread() const { return leadSpread_; }

 private:
  friend class SoundLayoutLearner;

  /// Gaps of one build, such as sound then other data ("AO").
  struct Pattern {
    std::uint64_t count = 0;
    /// Bytes before and behind the one stretch of sound.
    std::set<std::pair<std::uint64_t, std::uint64_t>> others;
  };

  bool isUsualSound(std::uint64_t bytes) const;
  std::optional<ByteRange> byKnownTotal(std::uint64_t from, std::uint64_t to) const;
  std::optional<ByteRange> byPattern(std::uint64_t from, std::uint64_t to) const;
  std::optional<ByteRange> beforeItems(const ByteSource& source, std::uint64_t from,
                                       std::uint64_t to) const;

  PCMLayout pcm_;
  /// Gap size → (bytes before the sound, bytes of sound), where the reference is unanimous.
  std::map<std::uint64_t, std::optional<std::pair<std::uint64_t, std::uint64_t>>> totals_;
  std::map<std::string, Pattern> patterns_;
  std::uint64_t smallestSound_ = 0;
  std::uint64_t largestSound_ = 0;
  double firstLead_ = 0;
  double usualLead_ = 0;
  double leadSpread_ = 0;
};

}  // namespace tallowmark
