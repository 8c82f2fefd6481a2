// SPDX-License-Identifier: GPL-3.0-or-later
#include "MediaKit/Rescue/Previewing.h"

#include <algorithm>
#include <system_error>

#include "DeviceKit/DeviceError.h"
#include "DeviceKit/PendingFile.h"
#include "MediaKit/Container/MediaError.h"
#include "MediaKit/Join/Compatibility.h"
#include "MediaKit/Photo/PhotoRepair.h"
#include "MediaKit/Rescue/Explain.h"
#include "MediaKit/Rescue/PictureTrial.h"
#include "MediaKit/Video/ClipStart.h"

namespace tallowmark {

namespace {

namespace fs = std::filesystem;

constexpr double previewSeconds = 15;
constexpr double secondsBeforeSeam = 5;
constexpr double secondsAfterSeam = 5;
constexpr int previewPixels = 900;

// A walk reports up to a half; making the preview is the last tenth of the whole.
constexpr double walkShare = 0.9 / 0.5;

// What a preview is made from goes when it is made, and when making it fails.
class FleetingFile {
 public:
  explicit FleetingFile(const fs::path& path) : path_(path) {}
  ~FleetingFile() {
    std::error_code ignored;
    fs::remove(path_, ignored);
  }
  FleetingFile(const FleetingFile&) = delete;
  FleetingFile& operator=(const FleetingFile&) = delete;
  FleetingFile(FleetingFile&&) = delete;
  FleetingFile& operator=(FleetingFile&&) = delete;

 private:
  const fs::path& path_;
};

// Where it cannot be made, writing into it says so.
void makeRoomFor(const PreviewFiles& files) {
  std::error_code error;
  fs::create_directories(files.full.parent_path(), error);
}

// Whether a preview could be made of what `write` writes. Only what has to do with the original
// throws: the scratch folder's troubles are not the file's.
bool makeClipPreview(const PreviewFiles& files, const std::function<void(FileSink&)>& write,
                     const ClipPreviewer& previewer, const StopToken& stop) {
  makeRoomFor(files);
  const FleetingFile full(files.full);
  try {
    FileSink sink(files.full.string());
    write(sink);
    sink.close();
  } catch (const DeviceError& failure) {
    if (failure.kind() == DeviceError::Kind::writeFailed) {
      return false;
    }
    throw;
  }
  stop.check();
  return previewer && previewer(files.full, files.preview, previewSeconds, stop);
}

RepairPreview previewClip(const DamagedFile& clip, const PreviewFiles& files,
                          const ClipPreviewer& previewer, const Progress& progress,
                          const StopToken& stop, const FileOpener& open,
                          const PictureDecoder& decoder) {
  const OpenedFile source = open(clip.path);
  const OpenedFile teacher = clip.reference ? open(*clip.reference) : OpenedFile{};
  const auto walking = [&](double fraction) {
    if (progress) {
      progress(fraction * walkShare);
    }
  };
  auto learnt = std::make_shared<LearntClip>();
  learnt->identity = source.identity;
  learnt->plan = VideoRepair::plan(*source.bytes, teacher.bytes.get(), walking, stop);
  makeRoomFor(files);
  requireDecodable(learnt->plan, *source.bytes, teacher.bytes.get(), files.full.parent_path(),
                   decoder, stop);
  requireUnchanged(source, clip.path);
  const auto start = [&](FileSink& sink) {
    VideoRepair::write(VideoRepair::clipStart(learnt->plan.movie, previewSeconds), *source.bytes,
                       sink, stop, learnt->plan.added);
  };
  const bool viewable = makeClipPreview(files, start, previewer, stop);
  return {learnt->plan.result, learnt, viewable};
}

// The seam of a recording with a single key frame reaches back to its start.
bool hasRoomForSeam(const std::vector<ClipJoin::Part>& parts, const PreviewFiles& files) {
  std::uint64_t largest = 0;
  for (const ClipJoin::Part& part : parts) {
    largest = std::max(largest, part.stamp ? part.stamp->size : 0);
  }
  const auto free = availableSpace(files.full.parent_path().parent_path());
  return !free || largest < *free;
}

// Parts of which no preview can be cut, for want of a key frame at the seam, join all the same.
bool makeSeamPreview(const std::vector<ClipJoin::Part>& parts, const PreviewFiles& files,
                     const ClipPreviewer& previewer, const StopToken& stop) {
  const auto seam = [&](FileSink& sink) {
    ClipJoin::writeSeam(parts, secondsBeforeSeam, secondsAfterSeam, sink, stop);
  };
  try {
    return hasRoomForSeam(parts, files) && makeClipPreview(files, seam, previewer, stop);
  } catch (const MediaError&) {
    return false;
  }
}

std::vector<PartFacts> factsOf(const std::vector<ClipJoin::Part>& parts) {
  std::vector<PartFacts> facts;
  facts.reserve(parts.size());
  for (const ClipJoin::Part& part : parts) {
    facts.push_back({part.stamp ? part.stamp->size : 0, part.movie.seconds()});
  }
  return facts;
}

}  // namespace

RepairPreview previewRepair(const DamagedFile& file, const PreviewFiles& files,
                            const ImageService& images, const ClipPreviewer& previewer,
                            const Progress& progress, const StopToken& stop, const FileOpener& open,
                            const PictureDecoder& decoder) {
  if (file.kind == Kind::video) {
    return previewClip(file, files, previewer, progress, stop, open, decoder);
  }
  MadePicture made = repairPicture(file, images, stop, open);
  stop.check();
  makeRoomFor(files);
  const bool viewable = makePhotoPreview(made.jpeg, files.preview, previewPixels, images);
  return {std::move(made.facts), nullptr, viewable};
}

JoinState::Preparation previewJoin(std::span<const fs::path> parts, const PreviewFiles& files,
                                   const ClipPreviewer& previewer, const StopToken& stop) {
  try {
    const std::vector<ClipJoin::Part> read = readJoinParts(parts, stop);
    if (const auto reason = ClipJoin::incompatibility(read)) {
      return JoinState::Incompatible{*reason};
    }
    JoinState::Prepared prepared{ClipJoin::summary(read), factsOf(read), false};
    prepared.viewable = makeSeamPreview(read, files, previewer, stop);
    return prepared;
  } catch (const Stopped&) {
    throw;
  } catch (const std::exception& error) {
    return JoinState::Failed{explain(error, false)};
  }
}

}  // namespace tallowmark
