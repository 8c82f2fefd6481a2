// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Bitstream/ParameterSets.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// How the pictures of a stream are read for their order.
struct OrderLessons {
  NALFormat format;
  /// Those of the reference; sets in the stream itself replace them as they come.
  ParameterSets sets;
  /// The most pictures that its own clip shows after one that was decoded behind them.
  std::size_t mostReordered = 0;
};

/// That number for a good clip, from its first some thousand samples.
std::size_t mostReordered(const SampleList& video);

/// When pictures are shown, in order.
struct PictureOrder {
  /// For every sample its place in output order.
  std::vector<std::uint32_t> places;
  /// For every place how many pictures' time the order counts have up to the next one: more than
  /// one where the encoder left some out, or where some are missing.
  std::vector<std::uint32_t> intervals;
  /// The most pictures that are decoded ahead of one and shown after it, several times and where
  /// nothing is missing.
  std::size_t mostHeldBack = 0;
  /// For every sample the number of its sequence, and how many pictures' time its count has it
  /// behind the picture that began that. Counts repeat after `cycle` pictures; 0 is not known.
  std::vector<std::uint32_t> sequences;
  std::vector<std::int64_t> positions;
  std::int64_t cycle = 0;
};

/// The order of the samples of `video`; nothing when the slice headers of some
/// cannot be read. `losses` are the numbers of samples ahead of which something may be missing:
/// there the order may start anew, since the picture that began a sequence may be gone. Throws
/// DeviceError, Stopped.
std::optional<PictureOrder> outputOrder(const SampleList& video, const ByteSource& source,
                                        const OrderLessons& lessons,
                                        std::span<const std::uint64_t> losses,
                                        const StopToken& stop = {});

/// The smallest composition offset of a track's samples; 0 without any.
std::int32_t smallestOffset(const SampleList& samples);

/// Gives the samples of `video` the composition offsets of pictures shown in `order`, one after the
/// other for as long as `shownFor` says in ticks. The smallest offset is `smallestOffset`, in the
/// track's timescale, as cameras differ in it; mediaStart is where the first picture shows. Changes
/// nothing when an offset would not fit its field.
void showInOrder(Track& video, std::span<const std::uint32_t> order,
                 std::span<const std::uint64_t> shownFor, std::int32_t smallestOffset);
/// The same, each place for as long as the sample of that number.
void showInOrder(Track& video, std::span<const std::uint32_t> order, std::int32_t smallestOffset);

}  // namespace tallowmark
