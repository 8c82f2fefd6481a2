// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Video/PictureDecoder.h"
#include "MediaKit/Video/PictureExcerpt.h"

namespace tallowmark {

/// Pictures to be decoded, and what stands at their end. They must outlive it.
struct TriedExcerpt {
  const PictureExcerpt& pictures;
  PictureExcerpt::End end = PictureExcerpt::End::asItIs;
};

/// Where pictures are decoded, and by whom. Pictures are written for it into hidden files in
/// `folder`, up to three at a time; a decoding that cannot be had, since nothing can be written
/// there or no decoder is here, is nothing. Throws DeviceError when a source cannot be read,
/// Stopped.
struct TrialDecoder {
  const std::filesystem::path& folder;
  const PictureDecoder& decoder;
  const StopToken& stop;

  std::optional<DecodedPictures> decode(std::initializer_list<TriedExcerpt> excerpts) const;

  /// Whether the pictures decode, and the last one's data ends where its decoding does. A decoder
  /// of HEVC makes something of any bytes without a complaint, and one that takes a picture for a
  /// smaller one stops where that is full.
  std::optional<bool> fits(const PictureExcerpt& excerpt) const;

  /// Whether that is so and the others decode as well, by two runs of the decoder. False also where
  /// that cannot be had, or where the first has no end to be changed.
  bool bothFit(const PictureExcerpt& excerpt, const PictureExcerpt& others) const;

 private:
  // Of pictures that decode to this sum: whether they do no longer with other bytes at their end.
  bool endsWithItsData(const PictureExcerpt& excerpt, const std::string& sum) const;
};

/// What tried pictures say of the parameter sets: how many times likelier they are if these are
/// theirs, as a logarithm.
class TrialEvidence {
 public:
  /// `intactShare` of the pictures fit if the sets are theirs; few of those of a badly damaged
  /// clip. Neither none nor all are sure to.
  explicit TrialEvidence(double intactShare = 0.3)
      : intactShare_(std::clamp(intactShare, 0.01, 0.99)) {}

  void add(std::optional<bool> fits, std::uint32_t pictureSize);

  std::size_t tried() const { return tried_; }
  bool speaksForThem() const;
  /// Nothing that was asked behind pictures that settle it does. One in 20 times it does so by
  /// chance; where damage is known to be everywhere it takes more.
  bool speaksAgainstThem(bool isBadlyDamaged = false) const;
  bool settlesIt() const { return isSettled_; }
  /// The share that fitted, no matter how few were tried.
  double share() const;
  /// How many bytes one of them had.
  double meanSize() const { return bytes_ / std::max(static_cast<double>(tried_), 1.0); }

 private:
  double intactShare_;
  std::size_t tried_ = 0;
  std::size_t fitting_ = 0;
  double bytes_ = 0;
  double weight_ = 0;
  double weightIfNearlyIntact_ = 0;
  bool isSettled_ = false;
};

/// A key picture and those behind it.
struct PictureRun {
  PictureExcerpt pictures;
  /// Of those that are no key pictures.
  std::uint64_t bytes = 0;
};

/// Of the pictures between two key pictures, those that damage hit least, or those that other
/// pictures are built on.
enum class Dependents { small, large };

/// A clip with video whose pictures are tried. What it is given must outlive it.
class TriedClip {
 public:
  TriedClip(const Movie& movie, const ByteSource& source) : movie_(movie), source_(source) {}

  /// As many as `most` pictures from this one on, before the next key picture; beyond, up to some
  /// hundred pictures, while those behind key pictures have fewer bytes than `fewestBytes`.
  PictureRun runFrom(std::uint64_t key, std::uint64_t most, std::uint64_t fewestBytes = 0) const;
  /// The numbers of some key pictures, spread over the clip.
  std::vector<std::uint64_t> keys(std::size_t most) const;
  /// One of the key pictures, if one of them decodes.
  std::optional<PictureExcerpt> goodKey(const TrialDecoder& decoder) const;

  /// How many bytes the pictures have that are asked as dependents.
  double meanDependentSize(Dependents which) const;

  /// Asks key pictures until they settle it.
  TrialEvidence askKeys(const TrialDecoder& decoder) const;
  /// The same of some pictures between key pictures, each put behind a good one; of this clip or of
  /// another: what a picture shows upon that is wrong then, how it is read is not.
  TrialEvidence askDependents(const PictureExcerpt& good, Dependents which,
                              const TrialDecoder& decoder,
                              const TrialEvidence& before = TrialEvidence()) const;
  /// The same, no matter what the first ones say.
  TrialEvidence askAllDependents(const PictureExcerpt& good, Dependents which,
                                 const TrialDecoder& decoder,
                                 const TrialEvidence& before = TrialEvidence()) const;

 private:
  enum class Until { settled, allAsked };
  const Track& video() const { return *movie_.videoTrack(); }
  std::vector<Sample> keyPictures() const;
  std::vector<Sample> dependentPictures(Dependents which) const;
  TrialEvidence ask(const PictureExcerpt& beginning, const std::vector<Sample>& pictures,
                    const TrialDecoder& decoder, const TrialEvidence& before, Until until) const;

  const Movie& movie_;
  const ByteSource& source_;
};

}  // namespace tallowmark
