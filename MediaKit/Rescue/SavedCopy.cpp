// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/SavedCopy.h"

#include <utility>

#include "MediaKit/Photo/PhotoRepair.h"
#include "MediaKit/Photo/RAWPreview.h"
#include "MediaKit/Rescue/CopyWriting.h"
#include "MediaKit/Rescue/PictureTrial.h"
#include "MediaKit/Rescue/WholePhoto.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

// What plans a clip anew where it is not known from before.
struct ClipPlanning {
  const ByteSource* teacher = nullptr;
  fs::path folder;
  const PictureDecoder& decoder;
};

VideoRepair::Result writeClip(const DamagedFile& clip, const OpenedFile& source,
                              const ClipPlanning& with, FileSink& copy, const Progress& progress,
                              const StopToken& stop) {
  if (clip.learnt && clip.learnt->identity == source.identity) {
    VideoRepair::write(clip.learnt->plan, *source.bytes, copy, progress, stop);
    return clip.learnt->plan.result;
  }
  const VideoRepair::Plan plan =
      VideoRepair::plan(*source.bytes, with.teacher, progress, stop, clip.depth);
  // The copy has no name before both are done.
  RunningPictureTrial trial(plan, *source.bytes, with.teacher, with.folder, with.decoder);
  const Progress written = VideoRepair::writingProgress(plan, progress);
  const auto report = [&](double fraction) {
    trial.check();
    if (written) {
      written(fraction);
    }
  };
  VideoRepair::write(plan, *source.bytes, copy, report, stop);
  trial.wait(stop);
  return plan.result;
}

SavedCopy saveClip(const DamagedFile& clip, const fs::path& folder, const Progress& progress,
                   const StopToken& stop, const FileOpener& open, const PictureDecoder& decoder) {
  const OpenedFile source = open(clip.path);
  const bool known = clip.learnt && clip.learnt->identity == source.identity;
  const OpenedFile teacher = clip.reference && !known ? open(*clip.reference) : OpenedFile{};
  VideoRepair::Result result;
  const fs::path path = writeCopy(
      {clip.path, SavedAs::repaired, folder, source.identity.modified, source.bytes->size()},
      [&](FileSink& copy) {
        result =
            writeClip(clip, source, {teacher.bytes.get(), folder, decoder}, copy, progress, stop);
        requireUnchanged(source, clip.path);
      },
      stop);
  return {path, result};
}

fs::path writePicture(const NewCopy& copy, const std::vector<std::uint8_t>& jpeg,
                      const StopToken& stop) {
  return writeCopy(
      copy, [&](FileSink& sink) { sink.append(jpeg); }, stop);
}

}  // namespace

MadePicture repairPicture(const DamagedFile& photo, const ImageService& images,
                          const StopToken& stop, const FileOpener& open) {
  const OpenedFile source = open(photo.path);
  const std::vector<std::uint8_t> bytes = readWholePhoto(*source.bytes);
  requireUnchanged(source, photo.path);
  stop.check();
  if (photo.kind == Kind::raw) {
    RAWPreview::Found found = RAWPreview::extract(bytes, images);
    return {std::move(found.jpeg),
            RescuedPicture{found.width, found.height, found.incomplete, found.keptDetails},
            source.identity.modified};
  }
  std::vector<std::uint8_t> teacher;
  std::optional<ByteView> reference;
  if (photo.reference) {
    teacher = readWholePhoto(*open(*photo.reference).bytes);
    reference = teacher;
  }
  stop.check();
  JPEGRepair::Repaired repaired = repairPhoto(bytes, reference, images);
  return {std::move(repaired.bytes), std::move(repaired.result), source.identity.modified};
}

SavedCopy saveRepairedCopy(const DamagedFile& file, const fs::path& folder,
                           const ImageService& images, const Progress& progress,
                           const StopToken& stop, const FileOpener& open,
                           const PictureDecoder& decoder) {
  if (file.kind == Kind::video) {
    return saveClip(file, folder, progress, stop, open, decoder);
  }
  MadePicture made = repairPicture(file, images, stop, open);
  stop.check();
  const SavedAs how = file.kind == Kind::raw ? SavedAs::rescued : SavedAs::repaired;
  const fs::path path =
      writePicture({file.path, how, folder, made.modified, made.jpeg.size()}, made.jpeg, stop);
  return {path, std::move(made.facts)};
}

}  // namespace tallowmark
