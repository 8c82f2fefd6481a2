// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "MediaKit/Container/Movie.h"
#include "MediaKit/Interleaving/BlockLayout.h"
#include "MediaKit/Timing/PicturePacing.h"
#include "MediaKit/Walk/EvidenceWalk.h"

namespace tallowmark::VideoRepair {

/// Compressed sound ready to be written.
struct RebuiltSound {
  /// The reference's tracks with the found blocks; none when no sound can be kept.
  std::vector<Track> tracks;
  /// A block of silence, which belongs right behind the last byte of media that any sample of
  /// picture, sound or telemetry has: blocks of silence point there. Empty when there are none.
  std::vector<std::uint8_t> silence;
  /// Blocks of one track: found in the file, silent ones put where as many are lost while time
  /// goes on in the picture, and about how many are lost behind the first key frame, with or
  /// without their pictures.
  std::uint64_t found = 0;
  std::uint64_t filled = 0;
  std::uint64_t lost = 0;
  /// How much of the tracks is ahead of pictures beside which nothing is lost.
  std::vector<SoundAnchor> anchors;
};

/// Makes tracks of the blocks that a walk found and keeps them together with the picture: where
/// blocks are lost silence takes their time, where pictures are lost the one before is held, and
/// ahead of the first key frame, before which no picture can be shown, sound goes, too. Sound that
/// is far too much or too little for the pictures is given up.
RebuiltSound rebuildSound(EvidencedFindings& found, const Movie& reference,
                          const BlockLayout& layout);

}  // namespace tallowmark::VideoRepair
