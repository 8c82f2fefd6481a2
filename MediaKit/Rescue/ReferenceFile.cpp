// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/ReferenceFile.h"

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/FileSource.h"
#include "MediaKit/Container/ClipInfo.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Rescue/Checking.h"

namespace tallowmark {

namespace {
bool givesClipInfo(const std::filesystem::path& file) {
  try {
    return ClipInfo::of(FileSource(file.string())).has_value();
  } catch (const DeviceError&) {
    return false;
  }
}
}  // namespace

Kind requireReference(const std::filesystem::path& file) {
  // An unknown extension is given the benefit of the doubt: only a clip can be read without one.
  const Kind kind = kindOf(file).value_or(Kind::video);
  if (kind == Kind::raw) {
    throw MediaError::unsupported(
        "RAW files aren't used as references. Pick a JPEG photo or a clip from the same camera.");
  }
  if (kind == Kind::photo &&
      !std::holds_alternative<FileState::Healthy>(checkFile(file, Kind::photo))) {
    throw MediaError::unsupported(
        "That photo doesn't open either. Pick a photo that opens, taken on the same camera.");
  }
  if (kind == Kind::video && !givesClipInfo(file)) {
    throw MediaError::unsupported(
        "That clip doesn't open either. Pick a clip that plays, recorded on the same camera.");
  }
  return kind;
}

}  // namespace tallowmark
