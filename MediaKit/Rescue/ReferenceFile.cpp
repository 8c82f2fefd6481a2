// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/ReferenceFile.h"

#include "DeviceKit/DeviceError.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Container/MovieParser.h"
#include "MediaKit/Rescue/Checking.h"

namespace tallowmark {

namespace {
// Nothing for a clip that cannot be read, or was cut off ahead of its first picture.
std::optional<ClipInfo> infoOf(const std::filesystem::path& clip, const FileOpener& open) {
  try {
    const OpenedFile file = open(clip);
    const Movie movie = MovieParser::parse(BoxReader(*file.bytes));
    const Track* video = movie.videoTrack();
    const bool isEmpty = video == nullptr || video->samples.endingBy(file.bytes->size()).empty();
    return isEmpty ? std::nullopt : ClipInfo::of(movie);
  } catch (const DeviceError&) {
    return std::nullopt;
  } catch (const MediaError&) {
    return std::nullopt;
  }
}
}  // namespace

ReferenceFile requireReference(const std::filesystem::path& file, const FileOpener& open) {
  // An unknown extension is given the benefit of the doubt: only a clip can be read without one.
  ReferenceFile reference{kindOf(file).value_or(Kind::video), {}};
  if (reference.kind == Kind::raw) {
    throw MediaError::unsupported(
        "RAW files aren't used as references. Pick a JPEG photo or a clip from the same camera.");
  }
  if (reference.kind == Kind::photo &&
      !std::holds_alternative<FileState::Healthy>(checkFile(file, Kind::photo, open))) {
    throw MediaError::unsupported(
        "That photo doesn't open either. Pick a photo that opens, taken on the same camera.");
  }
  if (reference.kind == Kind::video) {
    reference.info = infoOf(file, open);
    if (!reference.info) {
      throw MediaError::unsupported(
          "That clip doesn't open either. Pick a clip that plays, recorded on the same camera.");
    }
  }
  return reference;
}

}  // namespace tallowmark
