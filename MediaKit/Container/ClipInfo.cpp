// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Container/ClipInfo.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <exception>
#include <utility>

#include "MediaKit/Container/MovieParser.h"

namespace tallowmark {

namespace {

constexpr std::array<std::pair<FourCC, const char*>, 18> names{{
    {"avc1", "H.264"},
    {"avc3", "H.264"},
    {"hvc1", "HEVC"},
    {"hev1", "HEVC"},
    {"mp4a", "AAC"},
    {"lpcm", "PCM"},
    {"sowt", "PCM"},
    {"twos", "PCM"},
    {"in24", "PCM"},
    {"in32", "PCM"},
    {"fl32", "PCM"},
    {"fl64", "PCM"},
    {"raw ", "PCM"},
    {"apcn", "ProRes"},
    {"apch", "ProRes"},
    {"apcs", "ProRes"},
    {"apco", "ProRes"},
    {"ap4h", "ProRes"},
}};

std::optional<std::int64_t> wholePixels(double pixels) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (!std::isfinite(pixels) || pixels >= limit || pixels < -limit) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(pixels);
}

std::string rateText(double framesPerSecond) {
  std::array<char, 64> text{};
  const bool whole = framesPerSecond == std::floor(framesPerSecond);
  (void)std::snprintf(text.data(), text.size(), whole ? "%.0f" : "%.2f", framesPerSecond);
  return text.data();
}

}  // namespace

std::optional<ClipInfo> ClipInfo::of(const Movie& movie) {
  const Track* video = movie.videoTrack();
  if (video == nullptr) {
    return std::nullopt;
  }
  const auto width = wholePixels(video->width);
  const auto height = wholePixels(video->height);
  if (!width || !height) {
    return std::nullopt;
  }
  ClipInfo info;
  info.videoCodec = name(video->codec);
  info.width = *width;
  info.height = *height;
  const std::uint32_t frame = video->typicalDuration();
  info.framesPerSecond = frame == 0 ? 0 : static_cast<double>(video->timescale) / frame;
  info.seconds = movie.seconds();
  if (const Track* audio = movie.audioTrack()) {
    info.audioCodec = name(audio->codec);
  }
  return info;
}

std::optional<ClipInfo> ClipInfo::of(const ByteSource& source) {
  try {
    return of(MovieParser::parse(BoxReader(source)));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

ClipInfo ClipInfo::ofPhoto(std::int64_t width, std::int64_t height, std::string format) {
  ClipInfo info;
  info.videoCodec = std::move(format);
  info.width = width;
  info.height = height;
  return info;
}

std::string ClipInfo::name(FourCC code) {
  for (const auto& [known, name] : names) {
    if (known == code) {
      return name;
    }
  }
  const std::string text = code.description();
  const auto first = text.find_first_not_of(" \t\r\n\v\f");
  return first == std::string::npos
             ? std::string()
             : text.substr(first, text.find_last_not_of(" \t\r\n\v\f") - first + 1);
}

std::string ClipInfo::summary() const {
  std::string text = videoCodec + " · " + std::to_string(width) + "×" + std::to_string(height);
  if (framesPerSecond != 0) {
    text += " · " + rateText(framesPerSecond) + " fps";
  }
  return text;
}

}  // namespace tallowmark
