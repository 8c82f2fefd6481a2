// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Interleaving/BlockCollector.h"
#include "MediaKit/Interleaving/Interleaving.h"
#include "MediaKit/Interleaving/SoundLayout.h"
#include "MediaKit/Walk/MediaWalk.h"
#include "MediaKit/Walk/SideCollector.h"
#include "MediaKit/Walk/StreamEvidence.h"

namespace tallowmark::VideoRepair {

/// What stands between two pictures that do not lie back to back.
struct PictureGap {
  /// Number of the picture behind it.
  std::uint64_t frame = 0;
  ByteRange range;
  /// The pictures count on from one another.
  bool countsOn = false;
  /// It is as the reference's gaps are.
  bool isUsual = false;
};

/// PCM sound of another track, of which chunks take turns with the first one's.
struct FoundPCM {
  std::uint32_t trackID = 0;
  /// As many as the first track's, at the same times; of no size where they are lost.
  SampleList samples;
};

/// PCM sound that lies where the reference's does and has such a length, yet does not sound like
/// it.
struct DoubtfulSound {
  /// Number of the picture behind it.
  std::uint64_t frame = 0;
  /// Numbers of its samples.
  std::uint64_t from = 0;
  std::uint64_t to = 0;
  /// It is like no sound at all.
  bool isNoSound = false;
};

/// What a walk by evidence found: frames and sound, and where something between them is lost.
struct EvidencedFindings : Findings {
  /// Numbers of the video samples that follow a stretch which nothing explains.
  std::vector<std::uint64_t> losses;
  /// Of all losses it is known how many pictures are missing, and those before last as long.
  bool areMissingTold = false;
  std::vector<FoundPCM> otherAudio;
  /// In order; where half of the clip's sound is, which may be louder, only what is like none.
  std::vector<DoubtfulSound> doubtful;
  /// Compressed sound.
  FoundBlocks blocks;
  /// All gaps, where no compressed sound was looked for.
  std::vector<PictureGap> gaps;
  /// Telemetry, timecode and what is of other tracks.
  SideFindings side;
  /// Of the unused bytes: other video tracks' pictures, and other data in gaps as the reference has
  /// them that is of no track that could be told.
  std::uint64_t otherPictures = 0;
  std::uint64_t sideTracks = 0;
  /// Of the unused bytes: sound of PCM tracks of which nothing tells what is whose.
  std::uint64_t undividedSound = 0;
};

/// What the reference teaches a walk by evidence; all of it must outlive the walk.
struct WalkLessons {
  const StreamEvidence* evidence = nullptr;
  /// Other video tracks of the reference, whose frames are not to be taken for this one's.
  std::span<const StreamEvidence> otherTracks;
  /// How this track takes turns with them.
  Turns turns;
  /// The reference's sound: PCM, compressed or neither.
  const SoundLayout* sound = nullptr;
  const BlockLayout* blocks = nullptr;
  /// AAC beside PCM, of which nothing is kept.
  const BlockLayout* beside = nullptr;
  std::uint32_t frameDuration = 1;
  std::uint64_t maxFrameSize = 0;
  /// Tracks that are neither picture nor sound.
  SideLessons side;
};

/// Walks from `from` to the source's end and believes a frame by what is known of the camera: one
/// that stands where the frame before ended needs little, one found by searching needs evidence
/// that other data would not show. Progress runs from 0 to 0.5. Throws DeviceError, Stopped.
EvidencedFindings walkByEvidence(const ByteSource& source, std::uint64_t from,
                                 const WalkLessons& lessons, const Progress& progress = {},
                                 const StopToken& stop = {});

}  // namespace tallowmark::VideoRepair
