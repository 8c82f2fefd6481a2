// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Walk/MediaWalk.h"

#include <algorithm>

#include "MediaKit/Container/MediaWindow.h"

namespace tallowmark::VideoRepair {

namespace {

constexpr std::size_t smallestSpan = std::size_t{32} << 20U;

void takeGap(std::uint64_t from, std::uint64_t to, const std::optional<PCMLayout>& pcm,
             Findings& findings) {
  const std::uint64_t gap = to - from;
  findings.audioSeen = true;
  if (pcm && gap % pcm->sampleSize == 0) {
    findings.audio.append({.offset = from, .size = pcm->sampleSize, .duration = 1, .isSync = true},
                          gap / pcm->sampleSize);
  } else {
    findings.unused += gap;
  }
}

// The next frame start from `from` on, however far: the window moves on where it holds none.
std::optional<std::uint64_t> searchOn(MediaWindow& window, std::uint64_t from, std::size_t span,
                                      const NALFormat& format, std::size_t maxFrameSize,
                                      const StopToken& stop) {
  while (from < window.end()) {
    stop.check();
    const auto bytes = window.at(from, span);
    if (const auto hit = nextFrame(format, bytes, 0, maxFrameSize)) {
      return from + *hit;
    }
    if (from + bytes.size() >= window.end() || bytes.size() <= maxFrameSize) {
      return std::nullopt;
    }
    // A frame at the window's end may have been cut by it; it is looked at again.
    from += bytes.size() - maxFrameSize;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::size_t> nextFrame(const NALFormat& format, std::span<const std::uint8_t> bytes,
                                     std::size_t from, std::size_t maxFrameSize) {
  for (std::size_t at = from; at + format.lengthSize + 3 <= bytes.size(); ++at) {
    if (format.lengthSize == 4 && bytes[at] != 0) {
      const auto zero = std::find(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(), 0);
      at = static_cast<std::size_t>(zero - bytes.begin());
      if (at + format.lengthSize + 3 > bytes.size()) {
        return std::nullopt;
      }
    }
    const std::size_t limit = std::min(bytes.size() - at, maxFrameSize);
    if (format.frame(bytes.first(at + limit), at, limit)) {
      return at;
    }
  }
  return std::nullopt;
}

Findings walk(const ByteSource& source, std::uint64_t from, const NALFormat& format,
              const std::optional<PCMLayout>& pcm, std::uint32_t frameDuration,
              std::size_t maxFrameSize, const Progress& progress, const StopToken& stop) {
  const std::size_t span = std::max(maxFrameSize * 4, smallestSpan);
  const std::uint64_t end = source.size();
  MediaWindow window(source, end, {span, span});
  Findings findings;
  for (std::uint64_t at = from; at < end;) {
    stop.check();
    const auto bytes = window.at(at, span / 2);
    const std::size_t limit = std::min(bytes.size(), maxFrameSize);
    if (const auto frame = format.frame(bytes.first(limit), 0, limit)) {
      findings.video.append({.offset = at,
                             .size = static_cast<std::uint32_t>(frame->size),
                             .duration = frameDuration,
                             .isSync = frame->isKeyframe});
      at += frame->size;
    } else if (const auto next = searchOn(window, at + 1, span / 2, format, maxFrameSize, stop)) {
      takeGap(at, *next, pcm, findings);
      at = *next;
    } else {
      findings.unused += end - at;
      at = end;
    }
    if (progress) {
      progress(static_cast<double>(at - from) / static_cast<double>(end - from) * 0.5);
    }
  }
  return findings;
}

}  // namespace tallowmark::VideoRepair
