// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Container/Movie.h"
#include "MediaKit/Video/NALFormat.h"

namespace tallowmark {

/// A sample entry for pictures that were coded with other settings than its good clip's.
struct FittedEntry {
  std::vector<std::uint8_t> sampleEntry;
  /// Pictures are numbered in another way than the good clip's: read by its sets they make no
  /// sense.
  bool isRenumbered = false;
};

/// The sample entry of a good H.264 clip for pictures of the same encoder that it coded with other
/// settings. Encoders number and keep pictures in another way when they use B pictures; a clip that
/// has them does not decode by the parameter sets of one that has none. The pictures' own headers
/// tell: only with the right numbers does each of them end where it has to, count on from the one
/// before and find the pictures that it refers to. Nothing when the entry's sets fit the pictures,
/// when no others do, or when the pictures bring sets of their own.
///
/// `reference` is the good clip's video, `samples` are the pictures in decoding order, at their
/// places in `source`; `losses` the numbers of those ahead of which something is missing. With
/// `isFitted` the entry was fitted to fewer of the pictures before. Throws DeviceError, Stopped.
std::optional<FittedEntry> sampleEntryFor(const SampleList& samples, const ByteSource& source,
                                          const Track& reference, const NALFormat& format,
                                          std::span<const std::uint64_t> losses, bool isFitted,
                                          const StopToken& stop = {});

}  // namespace tallowmark
