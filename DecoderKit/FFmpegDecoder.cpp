// SPDX-License-Identifier: GPL-3.0-or-later
#include "DecoderKit/FFmpegDecoder.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

#include "DeviceKit/ChildProcess.h"

namespace tallowmark {

namespace {

// A dozen pictures of 8K in 10 bits take 0.8 GiB.
constexpr ToolLimits limits{std::chrono::seconds(20), std::size_t{1} << 20U,
                            Confinement{std::uint64_t{2} << 30U, 0}};

// The corner that is decoded last. A decoder of HEVC that loses its way says nothing and leaves the
// rest of its buffer as it was: all zeros, a colour that no camera can record. Their sum is zero.
constexpr std::string_view corner = "crop=16:16:iw-16:ih-16,format=yuv420p";
constexpr std::string_view cornerStream = "1";
constexpr std::string_view sumOfZeros = "0x00000000";

// One line of the sums: the stream's number, three times, the size and the sum, between commas.
bool isUntouchedCorner(std::string_view line) {
  const std::size_t sumAt = line.find("0x");
  return line.substr(0, line.find(',')) == cornerStream && sumAt != std::string_view::npos &&
         line.substr(sumAt, sumOfZeros.size()) == sumOfZeros;
}

// Whether there is a picture and every one is painted to its last corner.
bool areAllPainted(std::string_view sums) {
  bool any = false;
  while (!sums.empty()) {
    const std::string_view line = sums.substr(0, sums.find('\n'));
    sums.remove_prefix(std::min(sums.size(), line.size() + 1));
    if (isUntouchedCorner(line)) {
      return false;
    }
    any = any || !line.starts_with('#');
  }
  return any;
}

bool hasFFmpeg() {
  static const bool found = outputOf({"ffmpeg", "-nostdin", "-version"}, limits).has_value();
  return found;
}

// The demuxer is named and other protocols are closed: what claims to be a list of files opens
// none. Frames are decoded one by one, so that memory does not grow with the number of cores.
std::vector<std::string> decodingCommand(const std::filesystem::path& clip) {
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
          "-filter_complex",
          "[0:v:0]split[whole][all];[all]" + std::string(corner) + "[corner]",
          "-map",
          "[whole]",
          "-map",
          "[corner]",
          "-f",
          "framecrc",
          "pipe:1"};
}

}  // namespace

std::optional<DecodedPictures> decodePictures(const std::filesystem::path& clip,
                                              const StopToken& stop) {
  if (!hasFFmpeg()) {
    return std::nullopt;
  }
  ToolRun run = runTool(decodingCommand(clip), limits, stop);
  if (run.end != ToolRun::End::well && run.end != ToolRun::End::badly) {
    return std::nullopt;
  }
  const bool whole = run.end == ToolRun::End::well && areAllPainted(run.output);
  return DecodedPictures{whole, std::move(run.output)};
}

}  // namespace tallowmark
