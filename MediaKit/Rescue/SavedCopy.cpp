// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/SavedCopy.h"

#include <memory>

#include "DeviceKit/FileSource.h"
#include "MediaKit/Photo/PhotoRepair.h"
#include "MediaKit/Photo/RAWPreview.h"
#include "MediaKit/Rescue/CopyWriting.h"
#include "MediaKit/Rescue/WholePhoto.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

SavedCopy saveClip(const DamagedFile& clip, const fs::path& folder, const Progress& progress,
                   const StopToken& stop) {
  const FileSource source(clip.path.string());
  const auto teacher =
      clip.reference ? std::make_unique<FileSource>(clip.reference->string()) : nullptr;
  VideoRepair::Result result;
  const fs::path path = writeCopy(
      {clip.path, SavedAs::repaired, folder, source.modificationTime(), source.size()},
      [&](FileSink& copy) {
        result = VideoRepair::repair(source, teacher.get(), copy, progress, stop, clip.depth);
      },
      stop);
  return {path, result};
}

fs::path writePicture(const FileSource& original, SavedAs how, const fs::path& folder,
                      const std::vector<std::uint8_t>& jpeg, const StopToken& stop) {
  return writeCopy(
      {original.path(), how, folder, original.modificationTime(), jpeg.size()},
      [&](FileSink& copy) { copy.append(jpeg); }, stop);
}

SavedCopy savePhoto(const DamagedFile& photo, const fs::path& folder, const ImageService& images,
                    const StopToken& stop) {
  const FileSource source(photo.path.string());
  const std::vector<std::uint8_t> bytes = readWholePhoto(source);
  std::vector<std::uint8_t> teacher;
  std::optional<ByteView> reference;
  if (photo.reference) {
    teacher = readWholePhoto(FileSource(photo.reference->string()));
    reference = teacher;
  }
  stop.check();
  const JPEGRepair::Repaired repaired = repairPhoto(bytes, reference, images);
  stop.check();
  return {writePicture(source, SavedAs::repaired, folder, repaired.bytes, stop), repaired.result};
}

SavedCopy savePictureOf(const DamagedFile& raw, const fs::path& folder, const ImageService& images,
                        const StopToken& stop) {
  const FileSource source(raw.path.string());
  const std::vector<std::uint8_t> bytes = readWholePhoto(source);
  stop.check();
  const RAWPreview::Found found = RAWPreview::extract(bytes, images);
  stop.check();
  return {writePicture(source, SavedAs::rescued, folder, found.jpeg, stop),
          RescuedPicture{found.width, found.height, found.incomplete, found.keptDetails}};
}

}  // namespace

SavedCopy saveRepairedCopy(const DamagedFile& file, const fs::path& folder,
                           const ImageService& images, const Progress& progress,
                           const StopToken& stop) {
  switch (file.kind) {
    case Kind::photo:
      return savePhoto(file, folder, images, stop);
    case Kind::raw:
      return savePictureOf(file, folder, images, stop);
    case Kind::video:
      break;
  }
  return saveClip(file, folder, progress, stop);
}

}  // namespace tallowmark
