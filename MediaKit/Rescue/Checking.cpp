// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/Checking.h"

#include "DeviceKit/DeviceError.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Photo/JPEGRepair.h"
#include "MediaKit/Rescue/Explain.h"
#include "MediaKit/Rescue/WholePhoto.h"
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
    if (VideoRepair::isBlank(clip)) {
      return FileState::Failed{
          "Nothing is left of this clip's pictures: the file is blank where they should be."};
    }
    if (auto info = ClipInfo::of(clip)) {
      return FileState::Healthy{std::move(*info)};
    }
  }
  return FileState::NotAVideo{};
}

FileState::Any checkVideo(const std::filesystem::path& file, const FileOpener& open) {
  try {
    const OpenedFile clip = open(file);
    return stateOf(*clip.bytes, VideoRepair::diagnose(*clip.bytes));
  } catch (const DeviceError& error) {
    return FileState::Failed{"Couldn't read this file: " + std::string(error.what())};
  } catch (const MediaError& error) {
    return FileState::Failed{error.what()};
  }
}

FileState::Any checkRaw(const std::filesystem::path& file, const FileOpener& open) {
  try {
    (void)open(file).bytes->read(0, 1);
    return FileState::RawFile{};
  } catch (const DeviceError&) {
    return FileState::Failed{"Couldn't read this file."};
  }
}

FileState::Any stateOfPhoto(ByteView photo) {
  switch (JPEGRepair::diagnose(photo)) {
    case JPEGRepair::Diagnosis::healthy: {
      const auto header = JPEGRepair::parseHeader(photo);
      const auto size = header ? header->dimensions() : std::nullopt;
      return FileState::Healthy{
          ClipInfo::ofPhoto(size ? size->width : 0, size ? size->height : 0, "JPEG")};
    }
    case JPEGRepair::Diagnosis::truncated:
      return FileState::Truncated{};
    case JPEGRepair::Diagnosis::damagedHeader:
      return FileState::MissingIndex{JPEGRepair::needsReference(photo)};
    case JPEGRepair::Diagnosis::notJPEG:
      break;
  }
  return FileState::NotAVideo{};
}

}  // namespace

FileState::Any checkPhoto(const std::filesystem::path& photo, const FileOpener& open) {
  try {
    return stateOfPhoto(readWholePhoto(*open(photo).bytes));
  } catch (const DeviceError&) {
    return FileState::Failed{"Couldn't read this file."};
  } catch (const Stopped&) {
    throw;
  } catch (const std::exception& error) {
    return FileState::Failed{explain(error, false)};
  }
}

FileState::Any checkFile(const std::filesystem::path& file, Kind kind, const FileOpener& open) {
  switch (kind) {
    case Kind::raw:
      return checkRaw(file, open);
    case Kind::photo:
      return checkPhoto(file, open);
    case Kind::video:
      break;
  }
  return checkVideo(file, open);
}

}  // namespace tallowmark
