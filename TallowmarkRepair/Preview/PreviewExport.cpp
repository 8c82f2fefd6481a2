// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Preview/PreviewExport.h"

#include <QCoreApplication>
#include <QFile>
#include <QStandardPaths>
#include <string>
#include <system_error>
#include <vector>

#include "DeviceKit/ChildProcess.h"
#include "DeviceKit/DeviceError.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

enum class Sound { with, without };

using Words = std::vector<std::string>;

// Decoding 8K in 10 bits takes 1.3 GiB; fifteen seconds of the small picture take a few MB.
constexpr Confinement confinement{std::uint64_t{2} << 30U, std::uint64_t{128} << 20U};

// Memory is not to grow with the number of cores.
constexpr const char* threads = "4";

// Pixels are made square first: a picture of 1440×1080 that is shown 16:9 must not be squeezed.
constexpr const char* fitted =
    "scale=trunc(iw*sar/2)*2:trunc(ih/2)*2,setsar=1,"
    "scale=w='min(640,iw)':h='min(480,ih)':force_original_aspect_ratio=decrease"
    ":force_divisible_by=2";

// A point, whatever the user's language writes.
std::string textOf(double number) {
  return QString::number(number).toStdString();
}

// The demuxer is named and other protocols are closed: a file that claims to be a playlist opens
// nothing else.
Words exportCommand(const fs::path& ffmpeg, const fs::path& clip, const fs::path& target,
                    double seconds, Sound sound) {
  Words command{ffmpeg.string(), "-nostdin", "-v", "quiet", "-y"};
  const auto add = [&](const Words& more) {
    command.insert(command.end(), more.begin(), more.end());
  };
  add({"-protocol_whitelist", "file", "-threads", threads, "-f", "mov"});
  add({"-i", "file:" + clip.string(), "-map", "0:v:0"});
  add(sound == Sound::with ? Words{"-map", "0:a:0?", "-c:a", "aac", "-ac", "2"} : Words{"-an"});
  add({"-t", textOf(seconds), "-vf", fitted, "-c:v", "libx264", "-preset", "superfast"});
  add({"-threads", threads, "-crf", "25", "-pix_fmt", "yuv420p", "-movflags", "+faststart"});
  add({"-f", "mp4", "file:" + target.string()});
  return command;
}

// Whether the child ended well before then.
bool runChild(const Words& command, Deadline deadline, const StopToken& stop) {
  try {
    ChildProcess child(command, ChildProcess::noOutput, confinement);
    return child.endsWell(deadline, stop);
  } catch (const DeviceError&) {
    return false;
  }
}

}  // namespace

std::optional<fs::path> findFFmpeg() {
  const QString name = QStringLiteral("ffmpeg");
  QString found = QStandardPaths::findExecutable(name);
  if (found.isEmpty()) {
    // A program started from the Mac's Finder is not told the shell's PATH.
    found = QStandardPaths::findExecutable(
        name, {QCoreApplication::applicationDirPath(), "/opt/homebrew/bin", "/usr/local/bin",
               "/opt/local/bin"});
  }
  return found.isEmpty() ? std::nullopt : std::optional<fs::path>(QFile::encodeName(found).data());
}

bool PreviewExport::makePreview(const fs::path& clip, const fs::path& destination, double seconds,
                                const StopToken& stop) const {
  if (!ffmpeg_) {
    return false;
  }
  fs::path unfinished = destination;
  unfinished += ".unfinished";
  const Deadline deadline = std::chrono::steady_clock::now() + timeLimit_;
  std::error_code error;
  bool made = false;
  try {
    // Sound that no decoder knows must not cost the picture.
    for (const Sound sound : {Sound::with, Sound::without}) {
      made = made ||
             runChild(exportCommand(*ffmpeg_, clip, unfinished, seconds, sound), deadline, stop);
    }
  } catch (const Stopped&) {
    fs::remove(unfinished, error);
    throw;
  }
  if (made && fs::file_size(unfinished, error) > 0 && !error) {
    fs::rename(unfinished, destination, error);
    return !error;
  }
  fs::remove(unfinished, error);
  return false;
}

}  // namespace tallowmark
