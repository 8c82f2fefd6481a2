// SPDX-License-Identifier: GPL-3.0-or-later
#include "DecoderKit/FFmpegTrial.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "DeviceKit/ChildProcess.h"

namespace tallowmark {

namespace {

constexpr ToolLimits limits{std::chrono::seconds(20), std::size_t{1} << 20U};

// 16 × 16 pixels of 4:2:0.
constexpr std::size_t cornerBytes = 384;

// The corner that is decoded last. A decoder of HEVC that loses its way says nothing and leaves the
// rest of its buffer as it was: all zeros, a colour that no camera can record.
bool isUntouched(std::string_view corner) {
  return std::all_of(corner.begin(), corner.end(), [](char byte) { return byte == 0; });
}

bool hasFFmpeg() {
  static const bool found = outputOf({"ffmpeg", "-nostdin", "-version"}, limits).has_value();
  return found;
}

}  // namespace

std::optional<bool> picturesDecode(const std::filesystem::path& clip) {
  if (!hasFFmpeg()) {
    return std::nullopt;
  }
  const auto corners = outputOf({"ffmpeg",
                                 "-nostdin",
                                 "-v",
                                 "quiet",
                                 "-xerror",
                                 "-err_detect",
                                 "explode",
                                 "-threads",
                                 "1",
                                 "-protocol_whitelist",
                                 "file,pipe",
                                 "-i",
                                 "file:" + clip.string(),
                                 "-map",
                                 "0:v:0",
                                 "-vf",
                                 "crop=16:16:iw-16:ih-16,format=yuv420p",
                                 "-f",
                                 "rawvideo",
                                 "pipe:1"},
                                limits);
  if (!corners || corners->empty()) {
    return false;
  }
  for (std::size_t at = 0; at < corners->size(); at += cornerBytes) {
    if (isUntouched(std::string_view(*corners).substr(at, cornerBytes))) return false;
  }
  return true;
}

}  // namespace tallowmark
