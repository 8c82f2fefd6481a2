// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/ParameterFitting.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Interleaving/PCMLayout.h"
#include "MediaKit/Video/VideoRepair.h"
#include "MediaKit/Walk/EvidenceWalk.h"

namespace tallowmark::VideoRepair {

/// A video track's sample entry, and its picture size in pixels.
struct PictureDescription {
  std::vector<std::uint8_t> sampleEntry;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

/// A good clip of the camera and what it teaches.
struct Teacher {
  Movie movie;
  const Track* video = nullptr;
  /// The first sound track whose samples can be found without an index.
  const Track* audio = nullptr;
  bool hasSound = false;
  NALFormat format;
  std::optional<PCMLayout> pcm;
  std::optional<SoundLayout> sound;
  /// Other sound stands beside it, of which nothing tells where it ends: none may be kept.
  bool mayBlend = false;
  std::optional<BlockLayout> blocks;
  /// AAC tracks beside PCM, which is kept.
  std::optional<BlockLayout> beside;
  std::optional<StreamEvidence> evidence;
  std::vector<StreamEvidence> otherTracks;
  Turns turns;
  SideLessons side;
  /// Where it believes other settings than the reference's, the video track has the clip's own
  /// parameter sets, by which the reference's pictures make no sense.
  std::optional<ParameterFitting> fitting;

  /// Where the clip's pictures bring parameter sets along that are not the reference's, what
  /// describes them in the video track's place.
  std::optional<PictureDescription> carried;

  bool hasOtherSettings() const { return carried || (fitting && fitting->hasOtherSettings()); }
  const std::vector<std::uint8_t>& sampleEntry() const {
    return carried ? carried->sampleEntry : video->sampleEntry;
  }
};

/// Learns from the reference, of which `movie` is what is known. Throws MediaError::unsupported for
/// one without video or with another codec than H.264 and HEVC, and the reference's errors.
Teacher learn(Movie movie, const ByteSource& reference, Depth depth);

/// How long a rebuilt frame lasts, in the track's timescale: as most of the reference's do. Where
/// these are not what its length is made of (some slow motion is timed by few long samples among
/// many short ones), their mean.
std::uint32_t frameDuration(const Track& video);

}  // namespace tallowmark::VideoRepair
