// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "MediaKit/Bitstream/FirstSlices.h"
#include "MediaKit/Bitstream/ParameterSets.h"

namespace tallowmark {

/// How an H.264 encoder numbers its pictures and what they refer to, as its parameter sets say.
struct PictureSettings {
  unsigned frameNumBits = 4;
  unsigned orderType = 0;
  unsigned orderBits = 0;
  bool weighsP = false;
  std::uint32_t weighsB = 0;
  /// Pictures in lists 0 and 1 where a slice does not say.
  std::array<std::uint32_t, 2> references{1, 1};
  /// The most that are kept for others to refer to.
  std::uint32_t frames = 0;

  friend bool operator==(const PictureSettings&, const PictureSettings&) = default;

  /// These sets with these settings.
  ParameterSets in(ParameterSets sets) const;
};

/// Settings held against the first slices of pictures.
class SettingsFit {
 public:
  /// `sets` are of an encoder of the same make, and of whole frames.
  SettingsFit(std::vector<FirstSlices::Slice> slices, ParameterSets sets)
      : slices_(std::move(slices)), sets_(std::move(sets)) {}

  /// Whether nearly all slices read to their end and follow one another.
  bool fits(const PictureSettings& settings) const;

  /// The numbers of bits, weights and, where the slices' own weights tell, references that explain
  /// the slices; those of `known` before others. Nothing when none do, or others do nearly as well.
  /// `isTerse`: the encoder says no count of references that is the usual one.
  std::optional<PictureSettings> numbered(const PictureSettings& known, bool isTerse) const;

  /// Slices that do not read to their end, ask for pictures that there are not or say counts that
  /// they need not say; as few as can be where the settings are theirs.
  std::size_t contradicting(const PictureSettings& settings, bool isTerse) const;

  /// The same settings with as few frames as explain the most, no fewer than these.
  PictureSettings keeping(PictureSettings settings, bool isTerse = false) const;
  /// And with other references where these explain by far more, or as much and references and
  /// frames are as many, as they were.
  PictureSettings referring(const PictureSettings& settings, bool isTerse) const;

  /// Whether settings leave by far less to explain than others.
  bool isFarBetter(const PictureSettings& settings, const PictureSettings& than,
                   bool isTerse) const;

  bool hasB(const PictureSettings& settings) const;

 private:
  bool endsOnWholeBytes() const { return sets_.pictures.begin()->second.tail->arithmeticCoding; }
  std::size_t mostDamaged() const;
  std::optional<PictureSettings> numberedWith(const PictureSettings& known,
                                              std::uint32_t references) const;
  std::optional<PictureSettings> withItsNumbers(PictureSettings settings) const;
  std::size_t unread(const PictureSettings& settings) const;

  std::vector<FirstSlices::Slice> slices_;
  ParameterSets sets_;
};

}  // namespace tallowmark
