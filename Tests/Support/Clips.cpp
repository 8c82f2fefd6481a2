// SPDX-License-Identifier: GPL-3.0-or-later
#include "Tests/Support/Clips.h"

#include <unistd.h>

#include <functional>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "Tests/Support/Process.h"

namespace tallowmark::testing {

namespace fs = std::filesystem;

namespace {

std::string nameOf(const ClipRecipe& r) {
  std::ostringstream name;
  name << r.codec << '-' << (r.audio.empty() ? "silent" : r.audio) << "-b" << r.bFrames << "-s"
       << r.slices << '-' << r.seconds << "s-" << r.framesPerSecond << "fps-" << r.width << 'x'
       << r.height << "-g" << r.keyInterval << r.settings << "-v" << r.variant;
  if (r.sound != ClipRecipe().sound) {
    name << "-a" << r.channels << "x" << r.sampleRate << "-" << std::hash<std::string>()(r.sound);
  }
  if (r.soundTracks > 1) name << "-" << r.soundTracks << "tracks";
  if (r.lastChannels) name << "-lastx" << *r.lastChannels;
  if (r.lastSampleRate) name << "-lasthz" << *r.lastSampleRate;
  if (!r.lastTrack.empty()) name << "-last" << std::hash<std::string>()(r.lastTrack);
  if (r.grain > 0) name << "-grain" << r.grain;
  if (!r.keep.empty()) name << "-kept" << std::hash<std::string>()(r.keep);
  name << '.' << r.container;
  return name.str();
}

std::string encoderSettings(const ClipRecipe& r) {
  std::ostringstream settings;
  settings << "keyint=" << r.keyInterval << ":min-keyint=" << r.keyInterval << ":scenecut=0"
           << ":bframes=" << r.bFrames << ":slices=" << r.slices << r.settings;
  return settings.str();
}

std::vector<std::string> ffmpegCommand(const ClipRecipe& r, const fs::path& target) {
  std::ostringstream pictures;
  pictures << (r.variant % 2 == 0 ? "testsrc2" : "mandelbrot") << "=size=" << r.width << 'x'
           << r.height << ":rate=" << r.framesPerSecond;
  if (r.grain > 0) pictures << ",noise=alls=" << r.grain << ":allf=t";
  const std::string seconds = std::to_string(r.seconds);
  std::vector<std::string> command{"ffmpeg", "-y",    "-v", "error",
                                   "-f",     "lavfi", "-i", pictures.str()};
  const auto add = [&](std::initializer_list<const char*> more) {
    command.insert(command.end(), more.begin(), more.end());
  };
  if (!r.audio.empty()) {
    const std::string channels = std::to_string(r.channels);
    const std::string rate = std::to_string(r.sampleRate);
    add({"-f", "lavfi", "-i", r.sound.c_str(), "-ac", channels.c_str(), "-ar", rate.c_str(), "-c:a",
         r.audio.c_str()});
  }
  for (int i = 0; i < r.soundTracks && r.soundTracks > 1; ++i) {
    if (i == 0) add({"-map", "0"});
    const std::string filter = "-filter:a:" + std::to_string(i);
    const std::string louder =
        "volume=" + std::to_string(1 + i) + "dB" + (i + 1 == r.soundTracks ? r.lastTrack : "");
    add({"-map", "1", filter.c_str(), louder.c_str()});
  }
  const std::string last = ":a:" + std::to_string(r.soundTracks - 1);
  const auto ofLast = [&](const std::string& option, const std::optional<int>& value) {
    if (value) command.insert(command.end(), {option + last, std::to_string(*value)});
  };
  ofLast("-ac", r.lastChannels);
  ofLast("-ar", r.lastSampleRate);
  const std::string settings = encoderSettings(r);
  add({"-t", seconds.c_str(), "-c:v", r.codec.c_str(), "-pix_fmt", "yuv420p", "-preset", "fast",
       r.codec == "libx265" ? "-x265-params" : "-x264-params", settings.c_str()});
  if (r.codec == "libx265") add({"-tag:v", "hvc1"});
  const std::string kept = "select='" + r.keep + "'";
  if (!r.keep.empty()) add({"-vf", kept.c_str(), "-fps_mode", "vfr"});
  command.push_back(target.string());
  return command;
}

}  // namespace

std::string livelySound(int channels, int sampleRate, int variant) {
  std::ostringstream source;
  source << "aevalsrc='";
  for (int i = 0; i < channels; ++i) {
    const int note = 220 + 110 * i + 37 * variant;
    source << (i == 0 ? "" : "|") << "0.4*sin(" << note << "*2*PI*t)*lt(mod(t+" << i
           << "/9,0.9),0.6)+0.5*(random(" << i << ")-0.5)*lt(mod(t+" << i << "/7,0.31),0.03)";
  }
  source << "':sample_rate=" << sampleRate << ":channel_layout="
         << (channels == 1   ? "mono"
             : channels == 2 ? "stereo"
                             : "5.1");
  return source.str();
}

bool canMakeClips() {
  static const bool found = run({"ffmpeg", "-version"}).exitCode == 0;
  return found;
}

fs::path makeClip(const ClipRecipe& recipe) {
  const fs::path folder = fs::path(TALLOWMARK_BINARY_DIR) / "clips";
  fs::create_directories(folder);
  fs::path clip = folder / nameOf(recipe);
  if (fs::exists(clip)) return clip;
  // Test programs run side by side: a clip appears whole or not at all.
  const fs::path unfinished =
      folder / ("unfinished-" + std::to_string(::getpid()) + "." + recipe.container);
  if (const auto made = run(ffmpegCommand(recipe, unfinished)); made.exitCode != 0) {
    throw std::runtime_error("ffmpeg: " + made.errors);
  }
  fs::rename(unfinished, clip);
  return clip;
}

std::string decodingComplaints(const fs::path& clip) {
  const auto decoded = run({"ffmpeg", "-v", "error", "-i", clip.string(), "-f", "null", "-"});
  return decoded.exitCode == 0 ? decoded.errors
                               : "exit " + std::to_string(decoded.exitCode) + ": " + decoded.errors;
}

std::string decodedPictures(const fs::path& clip) {
  const auto decoded = run({"ffmpeg", "-v", "error", "-i", clip.string(), "-map", "0:v:0",
                            "-fps_mode", "passthrough", "-f", "framemd5", "-"});
  std::string sums;
  std::istringstream lines(decoded.output);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("#")) sums += line.substr(line.rfind(',') + 1) + "\n";
  }
  return sums;
}

}  // namespace tallowmark::testing
