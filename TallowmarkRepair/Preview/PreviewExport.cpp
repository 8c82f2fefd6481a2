// SPDX-License-Identifier: GPL-3.0-or-later
#include "TallowmarkRepair/Preview/PreviewExport.h"

#include <sys/resource.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <system_error>

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

enum class Sound { with, without };

QString textOf(const fs::path& path) {
  return QFile::decodeName(path.c_str());
}

// Pixels are made square first: a picture of 1440×1080 that is shown 16:9 must not be squeezed.
QString fitted() {
  return QStringLiteral(
      "scale=trunc(iw*sar/2)*2:trunc(ih/2)*2,setsar=1,"
      "scale=w='min(640,iw)':h='min(480,ih)':force_original_aspect_ratio=decrease"
      ":force_divisible_by=2");
}

// The demuxer is named and other protocols are closed: a file that claims to be a playlist opens
// nothing else.
QStringList exportCommand(const fs::path& clip, const fs::path& target, double seconds,
                          Sound sound) {
  QStringList command{"-nostdin", "-v",   "quiet", "-y", "-protocol_whitelist",
                      "file",     "-f",   "mov",   "-i", "file:" + textOf(clip),
                      "-map",     "0:v:0"};
  command += sound == Sound::with ? QStringList{"-map", "0:a:0?", "-c:a", "aac", "-ac", "2"}
                                  : QStringList{"-an"};
  return command + QStringList{"-t",
                               QString::number(seconds),
                               "-vf",
                               fitted(),
                               "-c:v",
                               "libx264",
                               "-preset",
                               "superfast",
                               "-crf",
                               "25",
                               "-pix_fmt",
                               "yuv420p",
                               "-movflags",
                               "+faststart",
                               "-f",
                               "mp4",
                               "file:" + textOf(target)};
}

// Whether the child ended well before its time was up.
bool runChild(const fs::path& program, const QStringList& arguments,
              std::chrono::milliseconds timeLimit, const StopToken& stop) {
  constexpr int lookAtStopEvery = 20;
  constexpr int lowPriority = 10;
  QProcess child;
  child.setStandardInputFile(QProcess::nullDevice());
  child.setStandardOutputFile(QProcess::nullDevice());
  child.setStandardErrorFile(QProcess::nullDevice());
  child.setChildProcessModifier([] { ::setpriority(PRIO_PROCESS, 0, lowPriority); });
  QElapsedTimer timer;
  timer.start();
  child.start(textOf(program), arguments);
  if (!child.waitForStarted()) {
    return false;
  }
  while (!child.waitForFinished(lookAtStopEvery)) {
    if (child.state() == QProcess::NotRunning) {
      break;
    }
    if (stop.stopRequested() || timer.hasExpired(timeLimit.count())) {
      child.kill();
      child.waitForFinished();
      stop.check();
      return false;
    }
  }
  return child.exitStatus() == QProcess::NormalExit && child.exitCode() == 0;
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
  std::error_code error;
  bool made = false;
  try {
    // Sound that no decoder knows must not cost the picture.
    for (const Sound sound : {Sound::with, Sound::without}) {
      made = made ||
             runChild(*ffmpeg_, exportCommand(clip, unfinished, seconds, sound), timeLimit_, stop);
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
