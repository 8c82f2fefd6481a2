// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "DeviceKit/ByteSource.h"
#include "DeviceKit/StopToken.h"
#include "MediaKit/Bitstream/NALFormat.h"
#include "MediaKit/Container/MovieWriter.h"
#include "MediaKit/Container/SampleList.h"
#include "MediaKit/Interleaving/PCMLayout.h"

namespace tallowmark::VideoRepair {

/// What a walk over media data found; offsets are positions in the file.
struct Findings {
  SampleList video;
  SampleList audio;
  /// Bytes that are neither.
  std::uint64_t unused = 0;
  /// At least one gap between two frames was met.
  bool audioSeen = false;
};

/// Walks from `from` to the source's end by framing alone: every plausible frame is one, a gap
/// between frames that is a whole number of PCM samples is sound, all else is unused. Progress runs
/// from 0 to 0.5. Throws DeviceError, Stopped.
Findings walk(const ByteSource& source, std::uint64_t from, const NALFormat& format,
              const std::optional<PCMLayout>& pcm, std::uint32_t frameDuration,
              std::size_t maxFrameSize, const Progress& progress = {}, const StopToken& stop = {});

/// The position at or after `from` in `bytes` at which the next plausible frame starts; nothing
/// when there is none.
std::optional<std::size_t> nextFrame(const NALFormat& format, std::span<const std::uint8_t> bytes,
                                     std::size_t from, std::size_t maxFrameSize);

}  // namespace tallowmark::VideoRepair
