// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/Checking.h"

#include <memory>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Video/VideoRepair.h"

namespace tallowmark {

namespace {

FileState::Any stateOf(const ByteSource& clip, const VideoRepair::Diagnosis& diagnosis) {
  if (const auto* truncated = std::get_if<VideoRepair::Truncated>(&diagnosis)) {
    return FileState::Truncated{truncated->samplesMissing};
  }
  if (std::holds_alternative<VideoRepair::MissingIndex>(diagnosis)) {
    return FileState::MissingIndex{};
  }
  if (std::holds_alternative<VideoRepair::Healthy>(diagnosis)) {
    if (auto info = ClipInfo::of(clip)) {
      return FileState::Healthy{std::move(*info)};
    }
  }
  return FileState::NotAVideo{};
}

FileState::Any checkVideo(const std::filesystem::path& file) {
  std::unique_ptr<FileSource> clip;
  try {
    clip = std::make_unique<FileSource>(file.string());
  } catch (const DeviceError& error) {
    return FileState::Failed{"Couldn't read this file: " + std::string(error.what())};
  }
  try {
    return stateOf(*clip, VideoRepair::diagnose(*clip));
  } catch (const DeviceError& error) {
    return FileState::Failed{"Couldn't read this file: " + std::string(error.what())};
  } catch (const MediaError& error) {
    return FileState::Failed{error.what()};
  }
}

FileState::Any checkRaw(const std::filesystem::path& file) {
  try {
    const FileSource raw(file.string());
    (void)raw.read(0, 1);
    return FileState::RawFile{};
  } catch (const DeviceError&) {
    return FileState::Failed{"Couldn't read this file."};
  }
}

}  // namespace

FileState::Any checkFile(const std::filesystem::path& file, Kind kind) {
  switch (kind) {
    case Kind::raw:
      return checkRaw(file);
    case Kind::photo:
      return FileState::Failed{"Photos can't be checked by this version yet."};
    case Kind::video:
      break;
  }
  return checkVideo(file);
}

}  // namespace tallowmark
