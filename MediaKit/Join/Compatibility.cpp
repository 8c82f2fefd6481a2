// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Join/Compatibility.h"

#include <algorithm>

#include "MediaKit/Container/ClipInfo.h"
#include "MediaKit/Join/EssentialConfig.h"

namespace tallowmark::ClipJoin {

namespace {

// A track header cannot hold more; a movie made otherwise might.
std::string wholePixels(double pixels) {
  constexpr double most = 65536;
  return std::to_string(static_cast<std::int64_t>(std::clamp(pixels, 0.0, most)));
}

std::string sizeOf(const Track& track) {
  return wholePixels(track.width) + "×" + wholePixels(track.height);
}

bool sameStream(const Track& a, const Track& b) {
  return a.timescale == b.timescale &&
         essentialConfig(a.sampleEntry, a.kind) == essentialConfig(b.sampleEntry, b.kind);
}

std::optional<std::string> pictureMismatch(const Track* video, const Track& first) {
  if (video == nullptr) {
    return "has no video.";
  }
  if (video->codec != first.codec) {
    return "uses a different video format (" + ClipInfo::name(video->codec) + " instead of " +
           ClipInfo::name(first.codec) + ").";
  }
  if (video->width != first.width || video->height != first.height) {
    return "is " + sizeOf(*video) + ", not " + sizeOf(first) +
           ". Only pieces of the same recording can be joined.";
  }
  if (!sameStream(*video, first)) {
    return "was recorded with different settings, so it isn't part of the same recording.";
  }
  // One clip has one rotation: the other part would lie on its side.
  if (video->matrix != first.matrix) {
    return "was recorded with the camera turned, so it isn't part of the same recording.";
  }
  return std::nullopt;
}

std::optional<std::string> soundMismatch(const Track* audio, const Track* first) {
  if ((audio == nullptr) != (first == nullptr)) {
    return std::string(audio != nullptr ? "has sound" : "has no sound") + " but the first clip " +
           (first != nullptr ? "does." : "doesn't.");
  }
  if (audio != nullptr && !sameStream(*audio, *first)) {
    return "records sound with different settings.";
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> incompatibility(std::span<const Part> parts) {
  if (parts.size() < 2) {
    return "Joining needs at least two clips.";
  }
  const Movie& first = parts.front().movie;
  if (first.videoTrack() == nullptr) {
    return parts.front().name() + " has no video.";
  }
  for (const Part& part : parts.subspan(1)) {
    auto mismatch = pictureMismatch(part.movie.videoTrack(), *first.videoTrack());
    if (!mismatch) mismatch = soundMismatch(part.movie.audioTrack(), first.audioTrack());
    if (mismatch) {
      return part.name() + " " + *mismatch;
    }
  }
  return std::nullopt;
}

}  // namespace tallowmark::ClipJoin
