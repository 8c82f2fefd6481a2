// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "DeviceKit/ByteSource.h"
#include "MediaKit/Container/Movie.h"

namespace tallowmark {

/// What a list or a detail pane says of a clip or photo.
struct ClipInfo {
  /// Display name of the video codec, or the photo's format.
  std::string videoCodec;
  /// Pixels.
  std::int64_t width = 0;
  std::int64_t height = 0;
  /// 0 for photos and when it cannot be worked out.
  double framesPerSecond = 0;
  /// 0 for photos.
  double seconds = 0;
  /// Absent without sound.
  std::optional<std::string> audioCodec;

  /// Nothing when the movie has no video track, or no size that makes sense.
  static std::optional<ClipInfo> of(const Movie& movie);
  /// Nothing when the source does not parse; errors are dropped.
  static std::optional<ClipInfo> of(const ByteSource& source);
  static ClipInfo ofPhoto(std::int64_t width, std::int64_t height, std::string format);

  /// The name people know a codec by; the code itself, trimmed, when it is not a common one.
  static std::string name(FourCC code);

  /// "H.264 · 1920×1080 · 29.97 fps"; without a rate the last fact is left out.
  std::string summary() const;

  friend bool operator==(const ClipInfo&, const ClipInfo&) = default;
};

}  // namespace tallowmark
