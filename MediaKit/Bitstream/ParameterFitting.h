// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/SettingsFit.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// A sample entry for pictures that were coded with other settings than its good clip's.
struct FittedEntry {
  std::vector<std::uint8_t> sampleEntry;
  /// Pictures are numbered in another way than was believed: read by those sets they make no sense.
  bool isRenumbered = false;
};

/// Works out the parameter sets of H.264 pictures of the same encoder as a good clip's, where it
/// coded them with other settings. Encoders number and keep pictures in another way when they use B
/// pictures, or more pictures to refer to; such a clip does not decode by the parameter sets of one
/// without. The pictures' own headers tell: only with the right numbers does each of them end where
/// it has to, count on from the one before and find the pictures that it refers to.
class ParameterFitting {
 public:
  /// `reference` is the good clip's video, which lies in `source`.
  ParameterFitting(const Track& reference, const ByteSource& source, NALFormat format);

  /// The good clip's sample entry with the sets of these pictures, which are believed from now on.
  /// Nothing when the sets believed fit the pictures, when no others do, or when the pictures bring
  /// sets of their own. `samples` are in decoding order, at their places in `source`; `losses` the
  /// numbers of those ahead of which something is missing. Throws DeviceError, Stopped.
  std::optional<FittedEntry> fit(const SampleList& samples, const ByteSource& source,
                                 std::span<const std::uint64_t> losses, const StopToken& stop = {});

  /// Sets are believed by which pictures are read in another way than by the good clip's.
  bool hasOtherSettings() const;

 private:
  /// What the good clip's own pictures say of its encoder.
  struct Habits {
    /// They go by the settings as pictures should.
    bool areRegular = false;
    /// They say no count of references that is the usual one.
    bool areTerse = false;
  };
  const Habits& habits(const StopToken& stop);
  std::optional<PictureSettings> settingsFor(const SettingsFit& fit, std::optional<bool> weighsB,
                                             const StopToken& stop);

  Track reference_;
  const ByteSource& source_;
  NALFormat format_;
  ParameterSets sets_;
  /// The good clip's; nothing where its sets cannot be changed.
  std::optional<PictureSettings> own_;
  std::optional<PictureSettings> believed_;
  std::optional<Habits> habits_;
};

}  // namespace tallowmark
