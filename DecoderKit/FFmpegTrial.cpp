// SPDX-License-Identifier: GPL-3.0-or-later
#include "DecoderKit/FFmpegTrial.h"

#include <algorithm>
#include <chrono>
#include <string_view>

#include "DeviceKit/ChildProcess.h"

namespace tallowmark {

namespace {

// A dozen pictures of 8K in 10 bits take 0.8 GiB.
constexpr ToolLimits limits{std::chrono::seconds(20), std::size_t{1} << 20U,
                            Confinement{std::uint64_t{2} << 30U, 0}};

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

// The demuxer is named and other protocols are closed: what claims to be a list of files opens
// none. Frames are decoded one by one, so that memory does not grow with the number of cores.
std::vector<std::string> trialCommand(const std::filesystem::path& clip) {
  return {"ffmpeg",
          "-nostdin",
          "-v",
          "quiet",
          "-xerror",
          "-err_detect",
          "explode",
          "-threads",
          "1",
          "-protocol_whitelist",
          "file",
          "-f",
          "mov",
          "-i",
          "file:" + clip.string(),
          "-map",
          "0:v:0",
          "-vf",
          "crop=16:16:iw-16:ih-16,format=yuv420p",
          "-f",
          "rawvideo",
          "pipe:1"};
}

}  // namespace

std::optional<bool> picturesDecode(const std::filesystem::path& clip, const StopToken& stop) {
  if (!hasFFmpeg()) {
    return std::nullopt;
  }
  const ToolRun run = runTool(trialCommand(clip), limits, stop);
  if (run.end != ToolRun::End::well && run.end != ToolRun::End::badly) {
    return std::nullopt;
  }
  const std::string_view corners = run.output;
  bool whole = run.end == ToolRun::End::well && !corners.empty();
  for (std::size_t at = 0; at < corners.size(); at += cornerBytes) {
    whole = whole && !isUntouched(corners.substr(at, cornerBytes));
  }
  return whole;
}

}  // namespace tallowmark
