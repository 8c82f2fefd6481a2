// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "MediaKit/Bitstream/OutputOrder.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark::VideoRepair {

/// How many pictures are missing where something is lost, by the order counts of those around it.
struct MissingPictures {
  /// Behind each sample in the order of decoding, and behind each place in output order.
  std::vector<std::uint32_t> decoded;
  std::vector<std::uint32_t> shown;
  /// Whether all losses are told; else nothing is missing in the lists at those that are not.
  bool areAllTold = true;
};

/// The losses as numbers of the samples that are left when the first `cut` are gone.
std::vector<std::uint64_t> lossesBehind(std::uint64_t cut, std::span<const std::uint64_t> losses);

/// What a good clip of the camera shows of its counts.
struct CountHabits {
  /// They skip wherever its pictures last longer than usual.
  bool countsAreTime = false;
  /// Pictures from each key picture to the next; 0 where they differ.
  std::int64_t sequence = 0;
  /// Some pictures are shown before others that are decoded ahead of them.
  bool isReordered = false;
  /// The most bytes between two of its pictures.
  std::uint64_t largestGap = 0;
};

/// Those numbers of a good clip.
std::int64_t sequenceLength(const SampleList& video);
std::uint64_t largestGap(const SampleList& video);

/// What the counts in `order` of the samples of `video` tell at `losses`, the numbers of samples
/// ahead of which something is missing. Where the pictures that began a sequence are lost, it takes
/// a stream whose sequences are all alike; how many whole ones are gone is told by the bytes that
/// lie there.
MissingPictures missingPictures(const SampleList& video, std::span<const std::uint64_t> losses,
                                const PictureOrder& order, const CountHabits& habits);

/// Lets samples last until the next one was due.
void holdForMissing(SampleList& pictures, std::uint64_t from, const MissingPictures& missing,
                    std::uint32_t duration);

/// How long the picture at each place is shown: as long as the sample of that number lasts, where
/// `pictures` were held for missing ones in the order of decoding.
std::vector<std::uint64_t> shownFor(const SampleList& pictures, const MissingPictures& missing,
                                    std::uint32_t duration);

}  // namespace tallowmark::VideoRepair
