// SPDX-License-Identifier: GPL-3.0-or-later
#include "DecoderKit/FFmpegDecoder.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "DeviceKit/ChildProcess.h"

namespace tallowmark {

namespace {

// A dozen pictures of 8K in 10 bits take 0.8 GiB in one clip.
ToolLimits limitsFor(std::size_t clips) {
  return {std::chrono::seconds(20), std::size_t{1} << 20U,
          Confinement{clips * (std::uint64_t{2} << 30U), 0}};
}

// The corner that is decoded last. A decoder of HEVC that loses its way says nothing and leaves the
// rest of its buffer as it was: all zeros, a colour that no camera can record. Their sum is zero.
constexpr std::string_view pictureAndCorner =
    "[#:v:0]split[whole#][all#];[all#]crop=16:16:iw-16:ih-16,format=yuv420p[corner#]";
constexpr std::string_view sumOfZeros = "0x00000000";

// Of each clip, its pictures and their corners.
constexpr std::size_t streamsPerClip = 2;

// What one line of the sums tells: the stream's number, three times, the size and the sum, between
// commas.
struct Sum {
  std::size_t stream = 0;
  std::string_view rest;
};

std::optional<Sum> sumIn(std::string_view line) {
  Sum sum;
  const auto [behind, error] = std::from_chars(line.data(), line.data() + line.size(), sum.stream);
  if (error != std::errc()) {
    return std::nullopt;
  }
  sum.rest = line.substr(static_cast<std::size_t>(behind - line.data()));
  return sum;
}

bool isOfZeros(const Sum& sum) {
  const std::size_t at = sum.rest.find("0x");
  return at != std::string_view::npos && sum.rest.substr(at, sumOfZeros.size()) == sumOfZeros;
}

// Whole when there is a picture in each clip and every one is painted to its last corner.
DecodedPictures picturesIn(std::string_view output, std::size_t clips) {
  DecodedPictures decoded{true, std::vector<std::string>(clips)};
  while (!output.empty()) {
    const std::string_view line = output.substr(0, output.find('\n'));
    output.remove_prefix(std::min(output.size(), line.size() + 1));
    const auto sum = sumIn(line);
    if (!sum || sum->stream >= clips * streamsPerClip) {
      continue;
    }
    if (sum->stream % streamsPerClip == 0) {
      decoded.sums[sum->stream / streamsPerClip].append(sum->rest).push_back('\n');
    } else if (isOfZeros(*sum)) {
      decoded.whole = false;
    }
  }
  decoded.whole = decoded.whole && std::none_of(decoded.sums.begin(), decoded.sums.end(),
                                                [](const auto& sums) { return sums.empty(); });
  return decoded;
}

// One that cannot even say who it is fails at every picture.
bool isFFmpegWell() {
  static const bool well = outputOf({"ffmpeg", "-nostdin", "-version"}, limitsFor(1)).has_value();
  return well;
}

// With the clip's number in the place of each "#".
std::string numbered(std::string_view text, std::size_t clip) {
  std::string all;
  for (const char letter : text) {
    all += letter == '#' ? std::to_string(clip) : std::string(1, letter);
  }
  return all;
}

// The demuxer is named and other protocols are closed: what claims to be a list of files opens
// none. Frames are decoded one by one, so that memory does not grow with the number of cores.
std::vector<std::string> decodingCommand(std::span<const std::filesystem::path> clips) {
  std::vector<std::string> command{"ffmpeg", "-nostdin", "-v", "quiet", "-xerror"};
  std::vector<std::string> outputs;
  std::string filters;
  for (std::size_t clip = 0; clip < clips.size(); ++clip) {
    command.insert(command.end(), {"-err_detect", "explode", "-threads", "1", "-protocol_whitelist",
                                   "file", "-f", "mov", "-i", "file:" + clips[clip].string()});
    filters += (clip > 0 ? ";" : "") + numbered(pictureAndCorner, clip);
    outputs.insert(outputs.end(),
                   {"-map", numbered("[whole#]", clip), "-map", numbered("[corner#]", clip)});
  }
  command.insert(command.end(), {"-filter_complex", filters});
  command.insert(command.end(), outputs.begin(), outputs.end());
  command.insert(command.end(), {"-f", "framecrc", "pipe:1"});
  return command;
}

}  // namespace

std::optional<DecodedPictures> decodePictures(std::span<const std::filesystem::path> clips,
                                              const StopToken& stop) {
  // One that hangs is not waited for again.
  static std::atomic<bool> wasCutOff{false};
  if (wasCutOff && !isFFmpegWell()) {
    return std::nullopt;
  }
  const ToolRun run = runTool(decodingCommand(clips), limitsFor(clips.size()), stop);
  DecodedPictures decoded = picturesIn(run.output, clips.size());
  switch (run.end) {
    case ToolRun::End::well:
      return decoded;
    case ToolRun::End::badly:
      decoded.whole = false;
      return isFFmpegWell() ? std::optional(std::move(decoded)) : std::nullopt;
    case ToolRun::End::cutOff:
      wasCutOff = true;
      break;
    case ToolRun::End::notStarted:
      break;
  }
  return std::nullopt;
}

}  // namespace tallowmark
